// A recording of live values, dropped onto the page or chosen: the same charts, without a server.

import { Charts } from "./charts.js";
import { el, memory, show, table } from "./dom.js";

// Cells of comma-separated values (RFC 4180).
export function parseRows(text) {
  const rows = [[]];
  const cell = /(?:"((?:[^"]|"")*)"|([^",\r\n]*))(,|\r?\n|$)/gy;
  while (cell.lastIndex < text.length) {
    const found = cell.exec(text);
    if (!found) {
      throw new Error(`Line ${rows.length} is no line of a recording.`);
    }
    rows.at(-1).push(found[1]?.replaceAll('""', '"') ?? found[2]);
    if (found[3] !== "," && found[3] !== "") {
      rows.push([]);
    } else if (found[3] === "," && cell.lastIndex === text.length) {
      rows.at(-1).push("");
    }
  }
  return rows.filter((row) => row.length > 0);
}

// The columns of numbers of a recording that velmara has written.
export function parseRecording(text) {
  const [titles, ...rows] = parseRows(text.replace(/^\ufeff/, ""));
  if (!titles || titles.length < 3 || rows.length === 0) {
    throw new Error("This is no recording of velmara: it has no rows of values.");
  }
  const series = titles.slice(2).map((title, i) => {
    const [, name, unit] = /^(.*?)(?: \[([^[\]]*)\])?$/s.exec(title);
    return { key: String(i), name, unit: unit ?? "", points: [] };
  });
  rows.forEach((row, line) => {
    const seconds = Number(row[0]);
    if (row[0].trim() === "" || !Number.isFinite(seconds)) {
      throw new Error(`Line ${line + 2} does not begin with a time in seconds.`);
    }
    series.forEach((each, i) => {
      const cell = row[i + 2];
      const value = Number(cell);
      if (cell !== undefined && cell.trim() !== "" && Number.isFinite(value)) {
        each.points.push([seconds, value]);
      }
    });
  });
  return series.filter((each) => each.points.length > 0);
}

export class RecordingView {
  #title = el("h2", {}, "Recording");
  #values = el("div");
  #choices = el("div", { class: "row", role: "group", "aria-label": "Values in the charts" });
  #charts = new Charts({ live: false, mode: memory.get("mode", "each") });
  #series = [];
  #shown = new Set();
  #onOpen;
  #complain;

  constructor(panel, onOpen, complain) {
    this.#onOpen = onOpen;
    this.#complain = complain;
    const file = el("input", { type: "file", accept: ".csv,text/csv", id: "recording-file", onchange: () => this.open(file.files[0]) });
    panel.append(this.#title,
      el("p", {}, "Drop a recording (CSV) anywhere onto this page, or ", el("label", {}, "choose one ", file)),
      this.#choices, this.#charts.element, this.#values);
    show(this.#charts.element, false);
    addEventListener("dragover", (event) => event.preventDefault());
    addEventListener("drop", (event) => {
      event.preventDefault();
      if (event.dataTransfer.files.length > 0) {
        this.open(event.dataTransfer.files[0]);
      }
    });
  }

  themeChanged() {
    this.#charts.themeChanged();
  }

  shown() {
    this.#charts.update();
  }

  async open(file) {
    if (!file) {
      return;
    }
    let series;
    try {
      series = parseRecording(await file.text());
      if (series.length === 0) {
        throw new Error("There are no numbers in it.");
      }
    } catch (error) {
      this.#complain(`${file.name} cannot be shown. ${error.message}`);
      return;
    }
    this.#series = series;
    this.#title.textContent = `Recording ${file.name}`;
    this.#shown = new Set(series.slice(0, 4));
    this.#choices.replaceChildren(...series.map((each) => {
      const box = el("input", { type: "checkbox", onchange: () => {
        if (box.checked) {
          this.#shown.add(each);
        } else {
          this.#shown.delete(each);
        }
        this.#draw();
      } });
      box.checked = this.#shown.has(each);
      return el("label", {}, box, " ", each.name);
    }));
    this.#values.replaceChildren(table("Values of the recording",
      ["Value", "Unit", "#Minimum", "#Average", "#Maximum", "#Points"],
      series.map((each) => {
        const values = each.points.map((point) => point[1]);
        const sum = values.reduce((a, b) => a + b, 0);
        return [each.name, each.unit, values.reduce((a, b) => Math.min(a, b)), (sum / values.length).toPrecision(5),
          values.reduce((a, b) => Math.max(a, b)), values.length].map(String);
      })));
    show(this.#charts.element, true);
    this.#onOpen();
    this.#draw();
  }

  #draw() {
    this.#charts.setSeries(this.#series.filter((each) => this.#shown.has(each)));
  }
}
