// One live value: its name, its number, a needle or a bar by its range, and its extremes.

import { button, el, svg } from "./dom.js";

const ARC = 2 / 3;  // of a turn, which the needle has

export function plain(value) {
  return value === null || value === undefined || value === "" ? "–" : String(value);
}

// Part of the way through the range; null without a range.
export function partOf(sensor, value) {
  const { lowest, highest } = sensor;
  if (typeof value !== "number" || typeof lowest !== "number" || typeof highest !== "number") {
    return null;
  }
  return Math.min(1, Math.max(0, (value - lowest) / (highest - lowest)));
}

function pointAt(part, radius) {
  const angle = Math.PI * (0.5 + (1 - ARC) + 2 * ARC * part);
  return `${(50 + radius * Math.cos(angle)).toFixed(2)} ${(50 + radius * Math.sin(angle)).toFixed(2)}`;
}

function arc(from, to, name) {
  const large = (to - from) * ARC > 0.5 ? 1 : 0;
  return svg("path", { class: name, d: `M ${pointAt(from, 42)} A 42 42 0 ${large} 1 ${pointAt(to, 42)}` });
}

export class Tile {
  element;
  #sensor;
  #value = el("span", { class: "value" }, "–");
  #extremes = el("p", { class: "extremes" });
  #gauge = el("div", { class: "gauge", "aria-hidden": "true" });
  #chart;
  #style;

  constructor(sensor, style, charted, onChart) {
    this.#sensor = sensor;
    this.#style = style;
    this.#chart = button("Chart", () => onChart(sensor.key), { "aria-pressed": String(charted), class: "small" });
    this.element = el("article", { class: "tile", "data-key": sensor.key, "aria-label": sensor.name },
      el("h3", {}, sensor.name),
      this.#gauge,
      el("p", { class: "reading" }, this.#value, " ", el("span", { class: "unit" }, sensor.unit)),
      this.#extremes,
      sensor.numeric ? this.#chart : null);
    this.#draw(null);
  }

  setCharted(charted) {
    this.#chart.setAttribute("aria-pressed", String(charted));
  }

  update(reading) {
    this.#value.textContent = plain(reading.value);
    if (this.#sensor.numeric) {
      this.#extremes.replaceChildren(...[["min", reading.minimum], ["avg", reading.average], ["max", reading.maximum]]
        .map(([name, value]) => el("span", {}, el("small", {}, name), " ", plain(value))));
      this.#draw(reading);
    }
  }

  setStale(stale) {
    this.element.classList.toggle("stale", stale);
  }

  #draw(reading) {
    if (partOf(this.#sensor, this.#sensor.lowest) === null) {
      return;
    }
    const part = reading ? partOf(this.#sensor, reading.value) : null;
    const least = reading ? partOf(this.#sensor, reading.minimum) : null;
    const most = reading ? partOf(this.#sensor, reading.maximum) : null;
    this.#gauge.replaceChildren(this.#style === "bar" ? this.#bar(part, least, most) : this.#needle(part, least, most));
  }

  #needle(part, least, most) {
    return svg("svg", { viewBox: "0 0 100 82", class: "needle" },
      arc(0, 1, "track"),
      least !== null && most > least ? arc(least, most, "seen") : null,
      part === null ? null : svg("path", { class: "hand", d: `M 50 50 L ${pointAt(part, 38)}` }),
      svg("circle", { class: "hub", cx: 50, cy: 50, r: 4 }),
      svg("text", { x: 8, y: 81 }, String(Number(this.#sensor.lowest.toPrecision(4)))),
      svg("text", { x: 92, y: 81, "text-anchor": "end" }, String(Number(this.#sensor.highest.toPrecision(4)))));
  }

  #bar(part, least, most) {
    const rect = (name, from, to) => svg("rect", { class: name, x: from * 100, y: 4, width: Math.max(0, to - from) * 100, height: 10 });
    return svg("svg", { viewBox: "0 0 100 30", class: "bar" },
      rect("track", 0, 1),
      part === null ? null : rect("filled", 0, part),
      least === null ? null : svg("rect", { class: "mark", x: least * 100, y: 2, width: 0.8, height: 14 }),
      most === null ? null : svg("rect", { class: "mark", x: Math.min(99.2, most * 100), y: 2, width: 0.8, height: 14 }),
      svg("text", { x: 0, y: 27 }, String(Number(this.#sensor.lowest.toPrecision(4)))),
      svg("text", { x: 100, y: 27, "text-anchor": "end" }, String(Number(this.#sensor.highest.toPrecision(4)))));
  }
}
