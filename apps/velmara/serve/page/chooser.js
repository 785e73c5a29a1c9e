// The dialog in which values are chosen and put into order.

import { button, el } from "./dom.js";

// Resolves to the keys in their order, or to null if nothing shall change.
export function chooseValues(sensors, chosen) {
  return new Promise((resolve) => {
    let order = chosen.filter((key) => sensors.has(key));
    const list = el("ul", { class: "choice" });
    const filter = el("input", { type: "search", id: "choice-filter" });
    const news = el("p", { class: "visually-hidden", role: "status" });

    const move = (key, by) => {
      const from = order.indexOf(key);
      const to = from + by;
      if (to < 0 || to >= order.length) {
        return;
      }
      order.splice(to, 0, order.splice(from, 1)[0]);
      draw();
      const again = list.querySelector(`[data-key="${CSS.escape(key)}"] .${by < 0 ? "up" : "down"}`);
      again?.focus();
      news.textContent = `${sensors.get(key).name} is number ${to + 1} of ${order.length}.`;
    };

    const item = (sensor) => {
      const isChosen = order.includes(sensor.key);
      const box = el("input", {
        type: "checkbox", value: sensor.key, onchange: () => {
          order = box.checked ? [...order, sensor.key] : order.filter((key) => key !== sensor.key);
          draw();
          list.querySelector(`input[value="${CSS.escape(sensor.key)}"]`)?.focus();
        },
      });
      box.checked = isChosen;
      return el("li", { "data-key": sensor.key },
        el("label", {}, box, " ", sensor.name, el("span", { class: "muted" }, ` ${sensor.pid}${sensor.unit ? `, ${sensor.unit}` : ""}`)),
        isChosen ? [button("↑", () => move(sensor.key, -1), { class: "small up", "aria-label": `${sensor.name}: earlier` }),
          button("↓", () => move(sensor.key, 1), { class: "small down", "aria-label": `${sensor.name}: later` })] : null);
    };

    const draw = () => {
      const words = filter.value.toLowerCase().split(/\s+/);
      const fits = (sensor) => words.every((word) => `${sensor.name} ${sensor.pid}`.toLowerCase().includes(word));
      const others = [...sensors.values()].filter((sensor) => !order.includes(sensor.key));
      list.replaceChildren(...[...order.map((key) => sensors.get(key)), ...others].filter(fits).map(item));
    };
    filter.addEventListener("input", draw);

    let result = null;
    const dialog = el("dialog", { "aria-labelledby": "choice-title", onclose: () => {
      dialog.remove();
      resolve(result);
    } },
    el("h2", { id: "choice-title" }, "Values to show"),
    el("label", {}, "Find ", filter), news, list,
    el("div", { class: "row" },
      button("Show them", () => {
        result = order;
        dialog.close();
      }, { class: "primary" }),
      button("None", () => {
        order = [];
        draw();
      }),
      button("Cancel", () => dialog.close())));
    document.body.append(dialog);
    draw();
    dialog.showModal();
  });
}
