// The choice of a link, and what happens while it opens.

import { badge, button, byId, el, show } from "./dom.js";
import { get, post } from "./server.js";

export class Connect {
  #links = byId("links");
  #phases = byId("phases");
  #complain;
  #listed = false;
  #proposed = el("div");
  #isAsked = false;
  #words = "";
  #began = 0;
  #timer = 0;
  #bluetooth = el("ul", { class: "links", "aria-live": "polite" });
  #protocol = el("select", { id: "protocol" });

  #onRecording;

  constructor(complain, onRecording) {
    this.#complain = complain;
    this.#onRecording = onRecording;
    byId("cancel-connecting").addEventListener("click", () => this.#ask(post("cancel")));
  }

  // Follows the session from phase to phase.
  update(state) {
    const isConnecting = state.phase === "connecting";
    const isOpen = isConnecting || ["idle", "failed"].includes(state.phase);
    show(byId("connect"), isOpen);
    show(byId("connecting"), isConnecting);
    show(this.#links, !isConnecting);
    if (isConnecting) {
      this.#showPhase(state.words);
    } else {
      this.#words = "";
      clearInterval(this.#timer);
      this.#phases.replaceChildren();
    }
    this.#proposed.replaceChildren(...(state.link
      ? [button(`Connect to ${state.link}`, () => this.connect(""), { class: "primary", id: "connect-last" })] : []));
    if (isOpen && !this.#listed) {
      this.#listed = true;
      this.#list();
    }
  }

  // Once, even if somebody clicks twice: the second time would begin all anew.
  async connect(link) {
    if (!this.#isAsked) {
      this.#isAsked = true;
      await this.#ask(post("connect", { link, protocol: this.#protocol.value === "auto" ? "" : this.#protocol.value }));
      this.#isAsked = false;
    }
  }

  #showPhase(words) {
    if (words === this.#words) {
      return;
    }
    this.#words = words;
    this.#began = Date.now();
    const time = el("span", { class: "muted", "aria-hidden": "true" });
    this.#phases.lastElementChild?.removeAttribute("aria-current");
    this.#phases.append(el("li", { "aria-current": "step" }, words, " ", time));
    clearInterval(this.#timer);
    this.#timer = setInterval(() => {
      time.textContent = `${Math.round((Date.now() - this.#began) / 1000)} s`;
    }, 500);
  }

  async #ask(promise) {
    try {
      await promise;
    } catch (error) {
      this.#complain(error.message);
    }
  }

  async #list() {
    let links;
    try {
      links = await get("links");
    } catch (error) {
      this.#listed = false;
      this.#complain(error.message);
      return;
    }
    this.#protocol.replaceChildren(...links.protocols.map((protocol) =>
      el("option", { value: protocol.name }, `${protocol.name}: ${protocol.description}`)));
    this.#links.replaceChildren(this.#proposed, el("div", { class: "cards" },
      this.#address(), this.#serial(links.serial), this.#search(), this.#demo(links.demo),
      this.#card("Without a car", button("Open a recording", this.#onRecording, { id: "open-recording" }))),
      el("label", {}, "Protocol of the car ", this.#protocol));
  }

  #card(title, ...content) {
    return el("section", { class: "card" }, el("h3", {}, title), content);
  }

  #address() {
    const host = el("input", { id: "host", required: true, autocomplete: "off", spellcheck: "false", placeholder: "192.168.0.10" });
    const port = el("input", { id: "port", type: "number", min: 1, max: 65535, value: 35000, required: true });
    const submit = (event) => {
      event.preventDefault();
      const name = host.value.trim();
      this.connect(`tcp:${name.includes(":") && !name.startsWith("[") ? `[${name}]` : name}:${port.value}`);
    };
    return this.#card("Wi-Fi adapter", el("form", { onsubmit: submit, class: "row" },
      el("label", {}, "Address ", host), el("label", {}, "Port ", port), el("button", {}, "Connect")));
  }

  #serial(ports) {
    return this.#card("Serial and USB adapters", ports.length === 0
      ? el("p", { class: "muted" }, "None found.")
      : el("ul", { class: "links" }, ports.map((port) => el("li", {},
        port.accessible
          ? button(port.link.replace(/^serial:/, ""), () => this.connect(port.link))
          : [port.link.replace(/^serial:/, ""), " ", badge("caution", port.problem)],
        port.name ? el("span", { class: "muted" }, ` ${port.name}`) : null))),
      button("Look again", () => this.#list()));
  }

  #search() {
    const search = button("Search, 13 s", async () => {
      search.disabled = true;
      this.#bluetooth.replaceChildren(el("li", {}, "Searching"));
      try {
        const found = await post("bluetooth");
        const items = [...found.bluetooth, ...found.lowEnergy].map((device) => el("li", {},
          button(device.name || device.address, () => this.connect(device.link)),
          el("span", { class: "muted" }, ` ${device.address}${device.signal ? `, Low Energy, ${device.signal} dBm` : ""}`)));
        const words = found.bluetoothError ?? (items.length === 0 ? "None found." : "");
        this.#bluetooth.replaceChildren(...items, ...(words ? [el("li", {}, words)] : []));
      } catch (error) {
        this.#bluetooth.replaceChildren(el("li", {}, error.message));
      }
      search.disabled = false;
    });
    return this.#card("Bluetooth adapters", this.#bluetooth, search);
  }

  #demo(cars) {
    const choice = el("select", { id: "demo" }, cars.map((car) => el("option", { value: car.link }, car.name)));
    const preferred = cars.find((car) => car.link === "demo:petrol-can11");
    if (preferred) {
      choice.value = preferred.link;
    }
    return this.#card("Simulated cars", el("label", {}, "Car ", choice),
      button("Connect", () => this.connect(choice.value), { id: "connect-demo" }));
  }
}
