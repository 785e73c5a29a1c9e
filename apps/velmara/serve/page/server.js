// What this page asks of its server.

import { memory } from "./dom.js";

const given = document.querySelector('meta[name="velmara-token"]').content;
let token = given;

// The address that velmara serve prints has the token behind a #, which browsers do not send.
export async function logIn(typed) {
  if (given !== "") {
    return true;
  }
  const found = /^#token=(\w+)$/.exec(location.hash);
  if (found) {
    history.replaceState(null, "", location.pathname);
  }
  token = typed || found?.[1] || memory.get("token", "");
  const response = await fetch("api/login", { method: "POST", headers: headers(), body: "{}" });
  if (response.ok) {
    memory.set("token", token);
  }
  return response.ok;
}

function headers() {
  return { "Content-Type": "application/json", Authorization: `Bearer ${token}` };
}

export class ServerError extends Error {
  constructor(status, answer) {
    super([answer.error, answer.advice].filter(Boolean).join(" "));
    this.status = status;
    this.kind = answer.kind;
  }
}

async function answerOf(promise) {
  let response;
  try {
    response = await promise;
  } catch {
    throw new ServerError(0, { error: "The server does not answer.", advice: "Is velmara serve still running?" });
  }
  const answer = await response.json().catch(() => ({ error: "The server's answer makes no sense." }));
  if (!response.ok) {
    throw new ServerError(response.status, answer);
  }
  return answer;
}

export const get = (path) => answerOf(fetch(`api/${path}`));

export const post = (path, body = {}) =>
  answerOf(fetch(`api/${path}`, { method: "POST", headers: headers(), body: JSON.stringify(body) }));

// Events of the server, which come again where they were when the connection breaks: "state", "sensors", "values",
// "document", "progress"; and "there" and "gone" of the server itself.
class Feed extends EventTarget {
  #source = null;
  #place = "";
  #watched = null;
  #timer = 0;

  // Says which parameters this page wants to have read.
  watch(parameters) {
    const watched = [...new Set(parameters)].sort().join(",");
    if (watched !== this.#watched) {
      this.#watched = watched;
      this.#open();
    }
  }

  #open() {
    clearTimeout(this.#timer);
    const former = this.#source;
    const query = new URLSearchParams({ watch: this.#watched, after: this.#place });
    const source = new EventSource(`api/events?${query}`);
    this.#source = source;
    for (const name of ["state", "sensors", "values", "document", "progress"]) {
      source.addEventListener(name, (event) => {
        if (source === this.#source) {
          this.#place = event.lastEventId;
          this.dispatchEvent(new CustomEvent(name, { detail: JSON.parse(event.data) }));
        }
      });
    }
    source.addEventListener("open", () => this.dispatchEvent(new Event("there")));
    source.addEventListener("error", () => {
      if (source !== this.#source) {
        return;
      }
      if (source.readyState === EventSource.CLOSED) {  // refused; it does not try again by itself
        this.#timer = setTimeout(() => this.#open(), 3000);
        this.#tellWhyRefused();
      } else {
        this.dispatchEvent(new CustomEvent("gone", { detail: "velmara serve does not answer." }));
      }
    });
    former?.close();
  }

  async #tellWhyRefused() {
    try {
      await get("state");
      this.dispatchEvent(new CustomEvent("gone", { detail: "velmara serve has no room for another page." }));
    } catch (error) {
      if (error.status === 401) {
        location.reload();  // which asks for the token
      }
      this.dispatchEvent(new CustomEvent("gone", { detail: error.message }));
    }
  }

  on(name, listener) {
    this.addEventListener(name, (event) => listener(event.detail));
  }
}

export const feed = new Feed();
