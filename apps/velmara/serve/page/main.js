// The page: who is shown what, and when.

import { Connect } from "./connect.js";
import { button, byId, el, memory, show } from "./dom.js";
import { Live } from "./live.js";
import { RecordingView } from "./recording.js";
import { feed, logIn, post } from "./server.js";
import { Vehicle } from "./vehicle.js";

const alertBanner = byId("alert");
const note = byId("note");
let noteTimer = 0;

function complain(text) {
  note.replaceChildren(text, " ", button("Close", () => show(note, false), { class: "small" }));
  show(note, true);
  clearTimeout(noteTimer);
  noteTimer = setTimeout(() => show(note, false), 30000);
}

// ---- Tabs, which arrow keys move between

const tabs = [...document.querySelectorAll('[role="tab"]')];
const panelOf = (tab) => byId(tab.getAttribute("aria-controls"));
let views = [];

function select(tab, focus = false) {
  for (const each of tabs) {
    const isSelected = each === tab;
    each.setAttribute("aria-selected", String(isSelected));
    each.tabIndex = isSelected ? 0 : -1;
    show(panelOf(each), isSelected);
  }
  tab.scrollIntoView({ block: "nearest", inline: "nearest" });
  if (focus) {
    tab.focus();
  }
  const name = tab.getAttribute("aria-controls");
  memory.set("tab", name);
  views.forEach((view) => view.shown(name));
}

byId("tabs").addEventListener("keydown", (event) => {
  const at = tabs.indexOf(document.activeElement);
  const to = { ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: tabs.length - 1 }[event.key];
  if (at >= 0 && to !== undefined) {
    event.preventDefault();
    select(tabs[(to + tabs.length) % tabs.length], true);
  }
});
tabs.forEach((tab) => tab.addEventListener("click", () => select(tab)));

// ---- Colors

const theme = byId("theme");
function applyTheme() {
  if (theme.value === "auto") {
    delete document.documentElement.dataset.theme;
  } else {
    document.documentElement.dataset.theme = theme.value;
  }
}
theme.value = memory.get("theme", "auto");
applyTheme();

// ---- The session, as all pages see it

const unit = byId("unit");
const unitSystem = byId("unit-system");
const disconnect = byId("disconnect");
let state = null;
let hasCar = false;
let hasRecording = false;

function ask(path, body) {
  return post(path, body).catch((error) => complain(error.message));
}
unit.addEventListener("change", () => ask("control-unit", { ecu: unit.value }));
unitSystem.addEventListener("change", () => ask("unit-system", { unitSystem: unitSystem.value }));
disconnect.addEventListener("click", () => ask("disconnect"));

function statusText({ phase, words, link, adapter, protocol, reading, simulated }) {
  if (phase !== "connected") {
    return words || "Not connected";
  }
  const parts = [simulated ? `${link} (a simulated car)` : link, adapter?.name, protocol].filter(Boolean);
  return `Connected: ${parts.join(", ")}${reading ? ` – reading ${reading}` : ""}`;
}

let alertText = "";
function setAlert(text, ...actions) {
  if (text === alertText) {
    return;
  }
  alertText = text;
  alertBanner.replaceChildren(text, " ", ...actions);
  show(alertBanner, text !== "");
}

function updateAlert(connect) {
  const { phase, words, advice, silence } = state;
  if (phase === "lost" || phase === "failed") {
    setAlert(`${words} ${advice}`.trim(), button("Connect again", () => connect.connect(""), { id: "again" }),
      " ", phase === "lost" ? button("Choose a link", () => ask("disconnect")) : "");
  } else {
    setAlert(phase === "connected" ? silence : "");
  }
}

function updateChoices() {
  const units = state.units ?? [];
  if (unit.dataset.units !== JSON.stringify(units)) {
    unit.dataset.units = JSON.stringify(units);
    unit.replaceChildren(...units.map((each) => el("option", { value: each.id }, `${each.name} (${each.id})`)));
  }
  unit.value = state.ecu ?? "";
  unitSystem.value = state.unitSystem;
  show(byId("unit-choice"), state.phase === "connected" && units.length > 1);
  show(disconnect, state.phase === "connected");
}

function start() {
  const showRecording = () => {
    hasRecording = true;
    show(byId("car"), true);
    select(byId("tab-recording"));
  };
  const connect = new Connect(complain, showRecording);
  const live = new Live(byId("live"), complain);
  const vehicle = new Vehicle(byId, complain);
  const recording = new RecordingView(byId("recording"), showRecording, complain);
  views = [{ shown: (name) => name === "live" && live.shown() }, vehicle,
    { shown: (name) => name === "recording" && recording.shown() }];

  theme.addEventListener("change", () => {
    memory.set("theme", theme.value);
    applyTheme();
    live.themeChanged();
    recording.themeChanged();
  });

  feed.on("state", (now) => {
    if (state && state.started !== now.started && !hasRecording) {
      location.reload();  // the server is another one, which knows another token
    }
    state = now;
    hasCar = ["connected", "lost"].includes(state.phase) || (hasCar && state.phase !== "idle");
    const text = statusText(state);
    if (byId("status").textContent !== text) {
      byId("status").textContent = text;
    }
    document.body.dataset.phase = state.phase;
    show(byId("car"), hasRecording || (hasCar && state.phase !== "connecting"));
    updateAlert(connect);
    updateChoices();
    [connect, live, vehicle].forEach((part) => part.update(state));
  });
  feed.on("gone", (reason) => {
    byId("status").textContent = "No connection to the server; trying again";
    setAlert(`${reason} This page goes on by itself.`);
  });
  feed.addEventListener("there", () => {
    if (state) {
      byId("status").textContent = statusText(state);
      updateAlert(connect);
    }
  });
  select(byId(`tab-${memory.get("tab", "live")}`) ?? tabs[0]);
}

const form = byId("token-form");
form.addEventListener("submit", async (event) => {
  event.preventDefault();
  if (await logIn(byId("token-input").value.trim())) {
    show(form, false);
    start();
  } else {
    complain("This is not the token.");
  }
});

if (await logIn()) {
  start();
} else {
  byId("status").textContent = "A token is needed";
  show(form, true);
  byId("token-input").focus();
}
