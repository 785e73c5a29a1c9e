// Live values as tiles and as charts.

import { Charts } from "./charts.js";
import { chooseValues } from "./chooser.js";
import { button, el, memory, show } from "./dom.js";
import { feed, get, post } from "./server.js";
import { Tile } from "./tiles.js";

const FIRST_CHOICE = ["0C", "0D", "05", "04", "11", "10", "0F", "42"];
const MOST_POINTS = 20000;
const PACES = {
  single: "",
  grouped: " in groups",
  declined: " one by one, as the vehicle answers no groups",
  unavailable: " one by one, as this protocol has no groups",
};
const STALE_AFTER = 5000;  // ms

export class Live {
  #panel;
  #complain;
  #sensors = new Map();  // by key, in the order of the car
  #points = new Map();  // by key
  #latest = new Map();  // reading and time by key
  #tiles = new Map();
  #chosen = memory.get("chosen", null);
  #charted = memory.get("charted", null);
  #style = memory.get("gauges", "needle");
  #grid = el("div", { class: "tiles" });
  #empty = el("p", { class: "muted" }, "No values are chosen.");
  #rate = el("span", { class: "muted", id: "rate" });
  #recordButton = button("Record", () => this.#record(), { id: "record" });
  #recordState = el("span", { class: "muted", id: "record-state" });
  #download = el("a", { href: "api/recording.csv", download: "velmara-recording.csv", class: "button", id: "download" }, "Download CSV");
  #recording = false;
  #pace = "single";
  #charts = new Charts({ live: true, mode: memory.get("mode", "each"), onMode: (mode) => memory.set("mode", mode) });
  #counted = [];

  constructor(panel, complain) {
    this.#panel = panel;
    this.#complain = complain;
    const style = el("select", { id: "gauges", onchange: () => {
      this.#style = style.value;
      memory.set("gauges", this.#style);
      this.#buildTiles();
    } }, el("option", { value: "needle" }, "needles"), el("option", { value: "bar" }, "bars"));
    style.value = this.#style;
    panel.append(
      el("div", { class: "row" },
        button("Choose values", () => this.#choose(), { id: "choose" }),
        el("label", {}, "Ranges as ", style),
        this.#recordButton, this.#recordState, this.#download, this.#rate),
      this.#empty, this.#grid, el("h2", {}, "Over time"), this.#charts.element);
    feed.on("sensors", () => this.#load());
    feed.on("values", (readings) => this.#take(readings));
    setInterval(() => this.#tick(), 500);
    this.#watch();
  }

  update(state) {
    this.#charts.setClock(state.started);
    this.#recording = state.recording.on;
    this.#recordButton.textContent = this.#recording ? "Stop recording" : "Record";
    this.#recordButton.disabled = state.phase !== "connected" && !this.#recording;
    this.#pace = state.pace;
    this.#recordButton.classList.toggle("recording", this.#recording);
    const { rows, end } = state.recording;
    this.#recordState.textContent = this.#recording ? `${rows} rows` : end ? `The recording ended: ${end}.` : "";
    show(this.#download, state.recording.bytes > 0 && !this.#recording);
  }

  themeChanged() {
    this.#charts.themeChanged();
  }

  shown() {
    this.#charts.update();
  }

  #watch() {
    const keys = this.#chosen ?? FIRST_CHOICE;
    feed.watch(keys.map((key) => key.split(".")[0]));
  }

  // What the car offers may have changed, and so have units and all that was read.
  async #load() {
    try {
      const [sensors, history] = await Promise.all([get("sensors"), get("history")]);
      this.#sensors = new Map(sensors.map((sensor) => [sensor.key, sensor]));
      this.#points = new Map(sensors.map((sensor) => [sensor.key, history[sensor.key] ?? []]));
      this.#forgetStrange();
    } catch (error) {
      this.#complain(error.message);
      return;
    }
    this.#buildTiles();
  }

  // Readings in other units than those of now, or of another control unit.
  #forgetStrange() {
    for (const [key, { reading }] of this.#latest) {
      const sensor = this.#sensors.get(key);
      if (sensor?.unit !== reading.unit || sensor.ecu !== reading.ecu) {
        this.#latest.delete(key);
      }
    }
  }

  #keys() {
    const keys = (this.#chosen ?? FIRST_CHOICE).filter((key) => this.#sensors.has(key));
    return keys.length > 0 || this.#chosen !== null ? keys : [...this.#sensors.keys()].slice(0, 6);
  }

  #chartedKeys() {
    const keys = this.#keys().filter((key) => this.#sensors.get(key).numeric);
    return this.#charted === null ? keys.slice(0, 3) : keys.filter((key) => this.#charted.includes(key));
  }

  #buildTiles() {
    const charted = this.#chartedKeys();
    this.#tiles = new Map(this.#keys().map((key) => [key,
      new Tile(this.#sensors.get(key), this.#style, charted.includes(key), (each) => this.#toggleChart(each))]));
    this.#grid.replaceChildren(...[...this.#tiles.values()].map((tile) => tile.element));
    for (const [key, tile] of this.#tiles) {
      const latest = this.#latest.get(key);
      if (latest) {
        tile.update(latest.reading);
      }
    }
    show(this.#empty, this.#sensors.size > 0 && this.#tiles.size === 0);
    this.#buildCharts();
  }

  #buildCharts() {
    this.#charts.setSeries(this.#chartedKeys().map((key) => {
      const { name, unit } = this.#sensors.get(key);
      return { key, name, unit, points: this.#points.get(key) };
    }));
  }

  #toggleChart(key) {
    const charted = this.#chartedKeys();
    this.#charted = charted.includes(key) ? charted.filter((each) => each !== key) : [...charted, key];
    memory.set("charted", this.#charted);
    this.#tiles.get(key).setCharted(this.#charted.includes(key));
    this.#buildCharts();
  }

  async #choose() {
    const chosen = await chooseValues(this.#sensors, this.#keys());
    if (chosen) {
      this.#chosen = chosen;
      memory.set("chosen", chosen);
      this.#watch();
      this.#buildTiles();
    }
  }

  #take(readings) {
    const now = Date.now();
    for (const reading of readings) {
      this.#latest.set(reading.key, { reading, now });
      const points = this.#points.get(reading.key);
      if (points && typeof reading.value === "number" && (points.length === 0 || points.at(-1)[0] < reading.seconds)) {
        points.push([reading.seconds, reading.value]);
        if (points.length > MOST_POINTS) {
          points.splice(0, MOST_POINTS / 10);
        }
      }
      this.#tiles.get(reading.key)?.update(reading);
    }
    this.#counted.push([now, readings.length]);
  }

  #tick() {
    const now = Date.now();
    this.#counted = this.#counted.filter(([time]) => now - time < 5000);
    const count = this.#counted.reduce((sum, [, each]) => sum + each, 0);
    this.#rate.textContent = count > 0 ? `${(count / 5).toFixed(0)} readings/s${PACES[this.#pace]}` : "";
    for (const [key, tile] of this.#tiles) {
      const latest = this.#latest.get(key);
      tile.setStale(!latest || now - latest.now > STALE_AFTER);
    }
    this.#charts.update();
  }

  async #record() {
    try {
      await post(this.#recording ? "recording/stop" : "recording/start");
    } catch (error) {
      this.#complain(error.message);
    }
  }
}
