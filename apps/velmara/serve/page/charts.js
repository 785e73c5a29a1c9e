// Values over time: one chart each, or all in one; zoomed and moved together.

/* global Dygraph */
import { button, el } from "./dom.js";

const LIGHT = ["#0969da", "#bc4c00", "#1a7f37", "#8250df", "#cf222e", "#0a6e6e", "#8a5d00", "#57606a"];
const DARK = ["#58a6ff", "#f0883e", "#3fb950", "#bc8cff", "#ff7b72", "#39c5cf", "#d29922", "#a3adb8"];
// What draws lines, and nothing that takes markup.
Dygraph.PLUGINS = [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid];

const SPANS = [[30, "30 s"], [120, "2 min"], [600, "10 min"], [0, "all"]];

function isDark() {
  return getComputedStyle(document.documentElement).colorScheme === "dark";
}

// A series is {key, name, unit, points: [[seconds, value], ...]}, whose points the owner adds to.
export class Charts {
  element;
  #series = [];
  #graphs = [];
  #mode = "each";
  #span = 120;
  #window = null;  // [from, to] in seconds; null: the latest
  #paused = false;
  #isStale = false;
  #isLive;
  #clock;  // seconds since 1970 at second 0; null to count from there
  #plots = el("div", { class: "plots" });
  #pause;
  #modeChoice;
  #spanChoice;
  #news = el("p", { class: "visually-hidden", role: "status" });

  constructor({ live, mode = "each", onMode = () => {} }) {
    this.#isLive = live;
    this.#mode = mode;
    this.#span = live ? 120 : 0;
    this.#clock = null;
    this.#pause = button("Pause", () => this.#setPaused(!this.#paused), { "aria-pressed": "false" });
    this.#modeChoice = el("select", { onchange: () => {
      this.#mode = this.#modeChoice.value;
      onMode(this.#mode);
      this.#rebuild();
    } },
    el("option", { value: "each" }, "one chart each"),
    el("option", { value: "common" }, "all on a common axis"),
    el("option", { value: "scaled" }, "all, each over its own range"));
    this.#modeChoice.value = mode;
    this.#spanChoice = el("select", { onchange: () => {
      this.#span = Number(this.#spanChoice.value);
      this.#window = null;
      this.#setPaused(false);
      this.update();
    } }, SPANS.map(([seconds, text]) => el("option", { value: seconds }, text)));
    this.#spanChoice.value = this.#span;
    this.element = el("div", { class: "charts" },
      el("div", { class: "row", role: "toolbar", "aria-label": "Charts" },
        live ? this.#pause : null,
        el("label", {}, "Show ", this.#modeChoice),
        el("label", {}, "Time ", this.#spanChoice),
        button("Zoom in", () => this.#zoom(0.5)), button("Zoom out", () => this.#zoom(2)),
        button("Earlier", () => this.#shift(-0.25)), button("Later", () => this.#shift(0.25))),
      this.#news, this.#plots);
    new ResizeObserver(() => {
      if (this.#isStale) {
        this.#rebuild();
      } else if (this.#plots.clientWidth > 0) {
        this.#graphs.forEach(({ dygraph }) => dygraph.resize());
      }
    }).observe(this.#plots);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#rebuild());
  }

  setClock(startOfClock) {
    this.#clock = startOfClock;
  }

  setSeries(series) {
    this.#series = series;
    this.#rebuild();
  }

  // Draws what has come.
  update() {
    if (this.#paused || this.element.closest("[hidden]") || document.hidden) {
      return;
    }
    this.#draw();
  }

  themeChanged() {
    this.#rebuild();
  }

  #setPaused(paused) {
    this.#paused = paused;
    this.#pause.textContent = paused ? "Go on" : "Pause";
    this.#pause.setAttribute("aria-pressed", String(paused));
    if (!paused) {
      this.#window = null;
      this.#draw();
    }
  }

  #bounds() {
    const ends = this.#series.filter((each) => each.points.length > 0)
      .map((each) => [each.points[0][0], each.points.at(-1)[0]]);
    if (ends.length === 0) {
      return [0, 1];
    }
    return [Math.min(...ends.map((end) => end[0])), Math.max(...ends.map((end) => end[1]), ends[0][0] + 1)];
  }

  #shown() {
    if (this.#window) {
      return this.#window;
    }
    const [first, last] = this.#bounds();
    return this.#span === 0 ? [first, last] : [Math.max(last - this.#span, Math.min(first, last - 5)), last];
  }

  #zoom(factor) {
    const [from, to] = this.#shown();
    const middle = this.#isLive && !this.#window ? to : (from + to) / 2;
    const left = (middle - from) * factor;
    const right = (to - middle) * factor;
    this.#look(middle - left, middle + right);
  }

  #shift(part) {
    const [from, to] = this.#shown();
    const by = (to - from) * part;
    this.#look(from + by, to + by);
  }

  // Looks at a piece of the past: what comes meanwhile waits.
  #look(from, to) {
    const [first, last] = this.#bounds();
    const length = Math.min(Math.max(to - from, 0.5), Math.max(last - first, 1));
    const begin = Math.min(Math.max(from, first), last - length);
    this.#window = [begin, begin + length];
    if (this.#isLive && !this.#paused) {
      this.#setPausedQuietly();
    }
    this.#draw();
    this.#news.textContent = `From ${this.#timeText(begin)} to ${this.#timeText(begin + length)}`;
  }

  #setPausedQuietly() {
    this.#paused = true;
    this.#pause.textContent = "Go on";
    this.#pause.setAttribute("aria-pressed", "true");
  }

  #timeText(seconds) {
    if (this.#clock !== null) {
      return new Date((this.#clock + seconds) * 1000).toLocaleTimeString([], { hourCycle: "h23" });
    }
    const whole = Math.max(0, seconds);
    return `${Math.floor(whole / 60)}:${(whole % 60).toFixed(whole % 1 ? 1 : 0).padStart(whole % 1 ? 4 : 2, "0")}`;
  }

  // Later, while nobody sees them: a graph takes its size from where it stands.
  #rebuild() {
    this.#graphs.forEach((graph) => graph.dygraph.destroy());
    this.#graphs = [];
    this.#plots.replaceChildren();
    this.#isStale = this.#plots.clientWidth === 0;
    if (this.#isStale) {
      return;
    }
    const groups = this.#mode === "each" ? this.#series.map((each) => [each]) : [this.#series];
    for (const group of groups.filter((each) => each.length > 0)) {
      this.#plots.append(this.#plot(group));
      this.#graphs.push(this.#graph(group, this.#plots.lastElementChild));
    }
    this.#draw();
  }

  #colorOf(series) {
    const colors = isDark() ? DARK : LIGHT;
    return colors[this.#series.indexOf(series) % colors.length];
  }

  #plot(group) {
    const legend = group.map((series) => {
      const swatch = el("span", { class: "swatch", "aria-hidden": "true" });
      swatch.style.background = this.#colorOf(series);
      return el("li", {}, swatch, " ", series.name, " ", el("output", { "aria-live": "off" }), ` ${series.unit}`);
    });
    return el("figure", { class: "plot" },
      el("figcaption", {}, el("ul", { class: "legend" }, legend)),
      el("div", { class: "graph", role: "img", "aria-label": "" }));
  }

  #graph(group, figure) {
    const style = getComputedStyle(document.documentElement);
    const outputs = [...figure.querySelectorAll("output")];
    const place = figure.querySelector(".graph");
    const latest = () => group.forEach((series, i) => {
      outputs[i].textContent = series.points.length === 0 ? "" : String(series.points.at(-1)[1]);
    });
    // Names of values are no labels of the graph's own, which takes labels for markup.
    const dygraph = new Dygraph(place, this.#rows(group), {
      labels: ["t", ...group.map((_, i) => `v${i}`)],
      colors: group.map((series) => this.#colorOf(series)),
      connectSeparatedPoints: true,
      strokeWidth: 1.5,
      dateWindow: this.#shown(),
      gridLineColor: style.getPropertyValue("--line").trim(),
      axisLineColor: style.getPropertyValue("--muted").trim(),
      animatedZooms: false,
      axes: {
        x: { axisLabelFormatter: (seconds) => this.#timeText(seconds), pixelsPerLabel: 80, axisLabelWidth: 76 },
        y: { axisLabelWidth: 44, pixelsPerLabel: 30 },
      },
      zoomCallback: (from, to) => this.#look(from, to),
      highlightCallback: (_event, seconds, points) => {
        for (const point of points) {
          const i = Number(point.name.slice(1));
          const near = group[i].points.findLast((each) => each[0] <= seconds);
          outputs[i].textContent = near === undefined ? "" : String(near[1]);
        }
      },
      unhighlightCallback: latest,
    });
    return { dygraph, group, place, latest };
  }

  // Those of several series stand in rows of their own, in the order of time.
  #rows(group) {
    if (group.length === 1 && this.#mode !== "scaled") {
      return group[0].points.length > 0 ? group[0].points : [[0, null]];
    }
    const rows = [];
    group.forEach((series, i) => {
      const values = series.points.map((point) => point[1]);
      const least = values.reduce((a, b) => Math.min(a, b), Infinity);
      const most = values.reduce((a, b) => Math.max(a, b), -Infinity);
      const scaled = (value) => most > least ? 100 * (value - least) / (most - least) : 50;
      for (const [seconds, value] of series.points) {
        const row = new Array(group.length + 1).fill(null);
        row[0] = seconds;
        row[i + 1] = this.#mode === "scaled" ? scaled(value) : value;
        rows.push(row);
      }
    });
    rows.sort((a, b) => a[0] - b[0]);
    return rows.length > 0 ? rows : [new Array(group.length + 1).fill(null).fill(0, 0, 1)];
  }

  #draw() {
    for (const { dygraph, group, place, latest } of this.#graphs) {
      dygraph.updateOptions({ file: this.#rows(group), dateWindow: this.#shown() });
      latest();
      place.setAttribute("aria-label", group.map((series) => this.#summary(series)).join(". "));
    }
  }

  #summary(series) {
    if (series.points.length === 0) {
      return `${series.name}: no values yet`;
    }
    const [from, to] = this.#shown();
    const values = series.points.filter((point) => point[0] >= from && point[0] <= to).map((point) => point[1]);
    const least = values.reduce((a, b) => Math.min(a, b), Infinity);
    const most = values.reduce((a, b) => Math.max(a, b), -Infinity);
    return `${series.name} over ${Math.round(to - from)} seconds: ` +
      `${least} to ${most} ${series.unit}, at last ${series.points.at(-1)[1]}`;
  }
}
