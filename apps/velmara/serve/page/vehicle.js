// What the car tells when it is asked: codes, readiness, tests, identity, and the report of it all.

import { badge, button, el, memory, svg, table, terms } from "./dom.js";
import { feed, get, post } from "./server.js";

const unitTitle = (unit) => `${unit.name} (${unit.id})`;
const withUnit = (value, unit) => value === null || value === undefined ? "–" : `${value}${unit ? ` ${unit}` : ""}`;

// What became of a question, where it did not bring all that was asked for.
function outcome(unit, key, title) {
  const state = unit[`${key}State`];
  const reason = unit[`${key}Reason`];
  if (state === undefined || (state === "read" && !reason)) {
    return null;
  }
  // The reason of a whole section is a sentence, which tells the state as well.
  const text = reason?.endsWith(".") ? reason : `${state}${reason ? `: ${reason}` : ""}`;
  return el("p", { class: state === "not offered" ? "muted" : "caution" }, `${title}: ${text}`);
}
const isOffered = (unit, key) => unit[`${key}State`] !== "not offered";

// A panel that shows documents of the server, which it has read when it is looked at for the first time.
class Panel {
  #names;
  #title;
  #draw;
  #automatic;
  #content = el("div", {});
  #progress = el("p", { class: "muted", role: "status" });
  #again;
  #documents = {};
  #drawn = "";
  #isShown = false;
  #isReading = false;
  #isConnected = false;

  constructor(panel, title, names, draw, extra = [], automatic = true) {
    this.#title = title;
    this.#names = names;
    this.#draw = draw;
    this.#automatic = automatic;
    this.#again = button(automatic ? "Read again" : "Read", () => this.read(true), { class: "read" });
    panel.append(el("div", { class: "row" }, el("h2", {}, title), this.#again, extra), this.#progress, this.#content);
    feed.on("document", ({ name }) => {
      if (name === null) {
        this.#drawn = "";
        this.#documents = {};
        this.#content.replaceChildren();
      }
      if (name === null || names.includes(name)) {
        this.#show();
      }
    });
    feed.on("progress", ({ section, unit, answers, expected }) => {
      if (this.#isReading) {
        this.#progress.textContent = `${unit}: ${section}${expected > 0 ? `, ${answers} of ${expected}` : ""}`;
      }
    });
  }

  update(state) {
    this.#isConnected = state.phase === "connected";
    this.#again.disabled = !this.#isConnected || this.#isReading;
    this.#show();
  }

  shown(isShown) {
    this.#isShown = isShown;
    this.#show();
  }

  get documents() {
    return this.#documents;
  }

  async #show() {
    if (!this.#isShown) {
      return;
    }
    const found = await Promise.all(this.#names.map((name) => get(`document?name=${name}`).catch(() => null)));
    const isWhole = found.every((document) => document !== null);
    this.#names.forEach((name, i) => { this.#documents[name] = found[i]; });
    this.redraw();
    if (!isWhole && this.#isConnected && this.#automatic) {
      await this.read(false);
    }
  }

  // Of what has come, if that is new.
  redraw(force = false) {
    const found = this.#names.map((name) => this.#documents[name]);
    const text = JSON.stringify(found);
    if (found[0] && (force || this.#drawn !== text)) {
      this.#drawn = text;
      this.#content.replaceChildren(...this.#draw(...found).flat().filter(Boolean));
    }
  }

  // Anew, or what nobody else has read yet.
  async read(anew) {
    if (this.#isReading) {
      return;
    }
    this.#isReading = true;
    this.#again.disabled = true;
    this.#progress.textContent = `Reading ${this.#title.toLowerCase()}`;
    try {
      for (const name of this.#names) {
        await post("read", { name, anew, make: name === "codes" || name === "freeze" ? memory.get("make", "") : "" });
      }
      this.#progress.textContent = "";
    } catch (error) {
      this.#progress.textContent = error.message;
    }
    this.#isReading = false;
    this.#again.disabled = !this.#isConnected;
    if (this.#progress.textContent === "") {
      this.#show();
    }
  }
}

// ---- Codes

function codeCell(entry) {
  const [first, ...others] = entry.texts;
  const makes = (text) => text.makes.length > 0 ? ` (${text.makes.join(", ")})` : "";
  if (!first) {
    return "";
  }
  return others.length === 0 ? first.text : el("details", {},
    el("summary", {}, `${first.text} and ${others.length} more`),
    el("ul", {}, entry.texts.map((text) => el("li", {}, text.text, el("span", { class: "muted" }, makes(text))))));
}

function codeTable(unit, key, title) {
  const codes = unit[key];
  if (codes === null) {
    return outcome(unit, key, title);
  }
  return codes.length === 0 ? el("p", {}, `${title}: none`)
    : table(title, ["Code", "System", "Meaning"], codes.map((entry) => [el("code", {}, entry.code), entry.system, codeCell(entry)]));
}

function since(unit) {
  const amounts = unit.sinceFault ?? unit.sinceCleared;
  const text = amounts && [amounts.distance, amounts.runTime].filter(Boolean).map(({ value, unit: name }) => withUnit(value, name)).join(", ");
  return text ? el("p", {}, `${unit.sinceFault ? "Since the fault" : "Since codes were cleared"}: ${text}`) : null;
}

function frameView(frame) {
  return el("details", { open: true, class: "frame" },
    el("summary", {}, `Freeze frame ${frame.frame}, stored by ${frame.code.code}`),
    table(`Freeze frame ${frame.frame}`, ["PID", "Value", "#Reading", "Unit"],
      frame.sensors.map((sensor) => [sensor.pid, sensor.name, String(sensor.value ?? "–"), sensor.unit])),
    frame.failures > 0 ? el("p", { class: "caution" }, `Values that did not come: ${frame.failures}`) : null);
}

// Where the unit counts other codes than it lists.
function ownCount(unit) {
  const count = unit.confirmedCount;
  return typeof count !== "number" || count === (unit.confirmed?.length ?? 0) ? null
    : el("p", { class: "caution" }, `The unit itself counts ${count} confirmed.`);
}

// The frames may still be on their way.
function drawCodes(codes, freeze) {
  return codes.units.map((unit) => {
    const frozen = freeze?.units.find((each) => each.id === unit.id);
    return el("section", { class: "card" }, el("h3", {}, unitTitle(unit)),
      unit.mil === null ? outcome(unit, "mil", "Indicator lamp (MIL)")
        : el("p", {}, "Indicator lamp (MIL): ", unit.mil ? badge("bad", "on") : badge("good", "off")),
      since(unit),
      codeTable(unit, "confirmed", "Confirmed codes"), ownCount(unit), codeTable(unit, "pending", "Pending codes"),
      codeTable(unit, "permanent", "Permanent codes"),
      frozen?.frames?.length > 0 ? frozen.frames.map(frameView)
        : frozen ? outcome(frozen, "frames", "Freeze frames") ?? el("p", {}, "Freeze frames: none") : null);
  });
}

// Says what will be lost before anything is.
function confirmClearing(codes, link) {
  return new Promise((resolve) => {
    const stored = (codes?.units ?? []).map((unit) => {
      const names = [...new Set([...(unit.confirmed ?? []), ...(unit.pending ?? [])].map((entry) => entry.code))];
      return el("li", {}, `${unitTitle(unit)}: ${names.length > 0 ? names.join(", ") : "no codes known"}`);
    });
    let result = false;
    const dialog = el("dialog", { "aria-labelledby": "clear-title", id: "clear-dialog", onclose: () => {
      dialog.remove();
      resolve(result);
    } },
    el("h2", { id: "clear-title" }, "Clear codes in all control units?"),
    el("p", {}, `Over the link ${link}, these go for good:`),
    el("ul", {}, stored,
      el("li", {}, "the freeze frames, which show what was measured when faults came"),
      el("li", {}, "the results of on-board tests"),
      el("li", {}, "the state of the readiness monitors: an inspection is refused until the car has run them again")),
    el("p", {}, "Permanent codes stay until the car itself finds the repair good."),
    el("div", { class: "row" },
      button("Clear them", () => {
        result = true;
        dialog.close();
      }, { class: "danger", id: "clear-yes" }),
      button("Keep them", () => dialog.close(), { autofocus: true })));
    document.body.append(dialog);
    dialog.showModal();
  });
}

// ---- Readiness, tests, identity

const statuses = {
  complete: ["good", "complete"], incomplete: ["caution", "not complete"],
  disabled: ["note", "disabled"], notAvailable: ["note", "not in this car"],
};

function monitorTable(unit, key, title) {
  const monitors = unit[key];
  if (monitors === null) {
    return outcome(unit, key, title);
  }
  const there = monitors.filter((monitor) => monitor.status !== "notAvailable");
  const open = there.filter((monitor) => monitor.status === "incomplete").length;
  return table(title, ["Monitor", "State"], there.map((monitor) => [monitor.name, badge(...statuses[monitor.status])]),
    there.every((monitor) => monitor.status === "complete") ? badge("good", "all complete")
      : open === 0 ? badge("note", "none incomplete") : badge("caution", `${open} of ${there.length} not complete`));
}

function drawMonitors(monitors) {
  return monitors.units.map((unit) => el("section", { class: "card" }, el("h3", {}, unitTitle(unit)),
    monitorTable(unit, "sinceReset", "Since codes were cleared"), monitorTable(unit, "thisCycle", "In this driving cycle")));
}

// Where a value lies between its limits, with some room beyond them.
function limitBar({ value, minimum, maximum, result }) {
  if (typeof value !== "number") {
    return "";
  }
  const ends = [minimum, maximum, value].filter((each) => typeof each === "number");
  const least = Math.min(...ends);
  const most = Math.max(...ends);
  const room = (most - least || Math.abs(most) || 1) * 0.15;
  const at = (number) => 100 * (number - least + room) / (most - least + 2 * room);
  const from = typeof minimum === "number" ? at(minimum) : 0;
  const to = typeof maximum === "number" ? at(maximum) : 100;
  return svg("svg", { viewBox: "0 0 100 14", class: `limits ${result}`, preserveAspectRatio: "none", "aria-hidden": "true" },
    svg("rect", { class: "track", x: 0, y: 4, width: 100, height: 6 }),
    svg("rect", { class: "allowed", x: from, y: 4, width: Math.max(0.5, to - from), height: 6 }),
    svg("rect", { class: "at", x: Math.max(0, at(value) - 1), y: 0, width: 2, height: 14 }));
}

const results = { passed: ["good", "passed"], failed: ["bad", "failed"], noResult: ["note", "no result"] };

function testTable(groups) {
  const titles = ["Test", "Result", "Between its limits", "Value", "Minimum", "Maximum", "Unit"];
  const row = (test) => el("tr", { class: test.result },
    el("td", {}, test.name || `Test ${test.id}`), el("td", {}, badge(...results[test.result])), el("td", {}, limitBar(test)),
    [test.value, test.minimum, test.maximum].map((value) => el("td", { class: "number" }, String(value ?? "–"))),
    el("td", {}, test.unit));
  return el("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": "Tests" }, el("table", {},
    el("thead", {}, el("tr", {}, titles.map((title, i) =>
      el("th", { scope: "col", class: i >= 3 && i <= 5 ? "number" : null }, title)))),
    groups.map((group) => el("tbody", {},
      el("tr", {}, el("th", { colspan: titles.length, scope: "rowgroup", class: "group" }, group.name || `Monitor ${group.id}`)),
      group.tests.map(row)))));
}

function drawTests(failedOnly, tests) {
  return tests.units.map((unit) => {
    const groups = [...(unit.onBoardTests ?? []), ...(unit.oxygenSensorTests ?? [])];
    const all = groups.flatMap((group) => group.tests);
    const failed = all.filter((test) => test.result === "failed").length;
    const shown = groups.map((group) =>
      ({ ...group, tests: group.tests.filter((test) => !failedOnly || test.result === "failed") }))
      .filter((group) => group.tests.length > 0);
    return el("section", { class: "card" }, el("h3", {}, unitTitle(unit)),
      all.length === 0 ? null
        : el("p", {}, failed === 0 ? badge("good", `none of ${all.length} failed`) : badge("bad", `${failed} of ${all.length} failed`)),
      shown.length > 0 ? testTable(shown) : null,
      all.length === 0 || isOffered(unit, "onBoardTests") ? outcome(unit, "onBoardTests", "On-board monitoring") : null,
      isOffered(unit, "oxygenSensorTests") ? outcome(unit, "oxygenSensorTests", "Oxygen sensor tests") : null);
  });
}

const lines = (list) => list && list.length > 0 ? list.map((text) => el("div", {}, text)) : null;

const information = {
  vin: "Vehicle identification number (VIN)", calibrations: "Calibrations", verificationNumbers: "Their verification numbers",
  engineSerialNumber: "Engine serial number", approvalNumber: "Approval number",
};

// What did not come of the vehicle information: one line where that is all of it.
function missingInfo(unit) {
  const missing = Object.keys(information).filter((key) => unit[`${key}State`] !== "read");
  return missing.length === Object.keys(information).length && unit.informationReason
    ? el("p", { class: isOffered(unit, "vin") ? "caution" : "muted" }, `Vehicle information: ${unit.informationReason}`)
    : missing.filter((key) => key === "vin" || isOffered(unit, key)).map((key) => outcome(unit, key, information[key]));
}

function drawInfo(info) {
  return info.units.map((unit) => el("section", { class: "card" }, el("h3", {}, unitTitle(unit)),
    terms([
      [information.vin, unit.vin && el("code", { class: "vin" }, unit.vin)],
      ["Check digit", unit.vinCheckDigitFits === null ? null : unit.vinCheckDigitFits ? badge("good", "fits") : badge("caution", "does not fit")],
      ["Model year", unit.modelYear],
      ["Control unit", unit.description],
      ["Standard", unit.standard],
      ["Ignition", unit.ignition],
      [information.calibrations, lines(unit.calibrations)],
      [information.verificationNumbers, lines(unit.verificationNumbers)],
      [information.engineSerialNumber, unit.engineSerialNumber],
      [information.approvalNumber, unit.approvalNumber],
    ]),
    missingInfo(unit),
    isOffered(unit, "counters") ? outcome(unit, "counters", "In-use counters") : null,
    unit.counters?.length > 0 ? table("How often monitors have run", ["Counter", "#Count"],
      unit.counters.map((counter) => [counter.name, String(counter.count ?? "–")])) : null));
}

// ---- Report

function drawReport(report) {
  const { tone, headline, findings } = report.verdict;
  return [el("section", { class: "card" },
    el("h3", {}, badge(tone, headline)),
    el("ul", { class: "findings" }, findings.map((finding) => el("li", {}, badge(finding.tone, finding.text)))),
    report.complete ? null : el("p", { class: "caution" }, "The report is incomplete."),
    el("p", {}, el("a", { href: "report", target: "_blank", rel: "noopener", class: "button", id: "report-page" }, "Open the page to print or keep")))];
}

export class Vehicle {
  #panels;
  #shown = null;

  constructor(panelOf, complain) {
    const make = el("input", { id: "make", autocomplete: "off", placeholder: "all makes", size: 12, onchange: () => {
      memory.set("make", make.value.trim());
      codes.read(true);
    } });
    make.value = memory.get("make", "");
    const cleared = el("div", { role: "status", id: "cleared" });
    const failedOnly = el("input", { type: "checkbox", id: "failed-only", onchange: () => this.#panels.tests.redraw(true) });
    const clear = button("Clear codes", async () => {
      if (!await confirmClearing(codes.documents.codes, this.#link)) {
        return;
      }
      clear.disabled = true;
      cleared.replaceChildren("Clearing");
      try {
        const answer = await post("clear", { confirm: true });
        cleared.replaceChildren(el("ul", {}, answer.words.map((words) => el("li", {}, words))));
      } catch (error) {
        cleared.replaceChildren();
        complain(error.message);
      }
      clear.disabled = !this.#isConnected;
    }, { class: "danger", id: "clear" });
    this.#clear = clear;
    const codes = new Panel(panelOf("codes"), "Trouble codes", ["codes", "freeze"], drawCodes,
      [el("label", {}, "Make ", make), clear, cleared]);
    this.#panels = {
      codes,
      monitors: new Panel(panelOf("monitors"), "Readiness", ["monitors"], drawMonitors),
      tests: new Panel(panelOf("tests"), "On-board tests", ["tests"],
        (document) => drawTests(failedOnly.checked, document), [el("label", {}, failedOnly, " Failed only")]),
      info: new Panel(panelOf("info"), "Vehicle", ["info"], drawInfo),
      report: new Panel(panelOf("report"), "Report", ["report"], drawReport,
        [el("span", { class: "muted" }, "Everything that the car tells; takes a minute or so.")], false),
    };
  }

  #link = "";
  #clear;
  #isConnected = false;

  update(state) {
    this.#link = state.link ?? "";
    this.#isConnected = state.phase === "connected";
    this.#clear.disabled = !this.#isConnected || state.reading !== null;
    Object.values(this.#panels).forEach((panel) => panel.update(state));
  }

  shown(name) {
    this.#panels[this.#shown]?.shown(false);
    this.#shown = name;
    this.#panels[name]?.shown(true);
  }
}
