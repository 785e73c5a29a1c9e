// Elements without markup: all that a car, an adapter or a file says goes in as text.

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) {
      element.addEventListener(name.slice(2), value);
    } else if (value === true) {
      element.setAttribute(name, "");
    } else if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(name, value);
    }
  }
  element.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export function el(name, attributes = {}, ...children) {
  return fill(document.createElement(name), attributes, children);
}

export function svg(name, attributes = {}, ...children) {
  return fill(document.createElementNS("http://www.w3.org/2000/svg", name), attributes, children);
}

export function button(text, onclick, attributes = {}) {
  return el("button", { type: "button", onclick, ...attributes }, text);
}

export const byId = (id) => document.getElementById(id);

// A table that scrolls by itself where it is too wide. Column titles that begin with "#" are those of numbers.
// The caption may go on with what is not part of the table's name.
export function table(caption, titles, rows, more = null) {
  const numeric = titles.map((title) => title.startsWith("#"));
  const cell = (content, i) => el("td", { class: numeric[i] ? "number" : null }, content);
  return el("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": caption },
    el("table", {},
      el("caption", {}, caption, more ? [": ", more] : null),
      el("thead", {}, el("tr", {}, titles.map((title, i) =>
        el("th", { scope: "col", class: numeric[i] ? "number" : null }, title.replace("#", ""))))),
      el("tbody", {}, rows.map((row) => el("tr", {}, row.map(cell))))));
}

// Terms and what they mean; those without a meaning are left out.
export function terms(list) {
  return el("dl", {}, list.filter(([, text]) => text !== null && text !== undefined && text !== "")
    .map(([term, text]) => [el("dt", {}, term), el("dd", {}, text)]));
}

const symbols = { good: "✓", caution: "!", bad: "✗", note: "–" };
export function badge(tone, text) {
  return el("span", { class: `badge ${tone}` }, el("span", { "aria-hidden": "true" }, symbols[tone]), " ", text);
}

export function show(element, visible) {
  element.hidden = !visible;
}

// What this browser remembers. It may refuse to.
export const memory = {
  get(key, otherwise) {
    try {
      return JSON.parse(localStorage.getItem(`velmara.${key}`)) ?? otherwise;
    } catch {
      return otherwise;
    }
  },
  set(key, value) {
    try {
      localStorage.setItem(`velmara.${key}`, JSON.stringify(value));
    } catch {
      // It lasts as long as the page, then.
    }
  },
};
