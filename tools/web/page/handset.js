/* The telephone on the other side of the simulated network. */
import { byId, keep, make, timeElement } from "./dom.js";
import { inspect } from "./inspector.js";
import { note } from "./notes.js";
import { ask, read } from "./server.js";
import { showModem } from "./status.js";
import { endOf } from "./words.js";

let revision = null;
let loading = false;
let wanted = 0; // the newest revision that the server has told of

/* What can go wrong, and how to say it; the server knows these words. */
const TROUBLE = [
  { action: (modem) => modem.plugged ? "unplug" : "plug", text: (modem) => modem.plugged ? "Unplug the modem" : "Plug the modem in" },
  { action: (modem) => modem.registered ? "leave-network" : "join-network",
    text: (modem) => modem.registered ? "Leave the network" : "Join the network" },
  { action: () => "restart", text: () => "Restart the modem" },
];

async function perform(kind, path, body) {
  try {
    const job = await ask(path, body);
    if (!job.ok) {
      note(endOf(kind, job), true);
    }
    return job.ok;
  } catch (problem) {
    note(endOf(kind, problem), true);
    return false;
  }
}

function bubble(message) {
  const mine = message.from === "handset";
  const about = [timeElement(message.date)];
  if (message.parts > 1 || !message.complete) {
    about.push(message.complete ? ` · ${message.parts} parts` : ` · ${message.arrived} of ${message.parts} parts so far`);
  }
  const foot = make("span", { class: "about" }, ...about);
  if (message.pdus.length > 0) {
    foot.append(" · ", make("button", { type: "button", class: "link-button", "data-act": "pdu",
      onclick: () => inspect(message.pdus) }, message.pdus.length > 1 ? "PDUs" : "PDU"));
  }
  const who = make("span", { class: "hidden-label" }, mine ? "To the router: " : "From the router: ");
  return make("li", { class: mine ? "bubble mine" : "bubble" }, who,
    make("p", { dir: "auto", class: "bubble-text" }, message.text), foot);
}

function draw(content) {
  showModem(content);
  byId("handset-number").textContent = content.number || "Handset";
  const link = !content.reachable ? ["simulator gone", "bad"] : !content.plugged ? ["modem unplugged", "bad"] :
    !content.registered ? ["router not on the network", "bad"] : ["router reachable", "good"];
  byId("handset-link").textContent = link[0];
  byId("handset-link").className = `link ${link[1]}`;
  const list = byId("handset-messages");
  list.hidden = content.messages.length === 0;
  byId("handset-empty").hidden = !list.hidden;
  const atEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 60;
  keep(list, content.messages, (message) => message.seq, (message) => message, bubble);
  if (atEnd) {
    list.scrollTop = list.scrollHeight;
  }
  keep(byId("trouble-buttons"), TROUBLE.map((each) => ({ action: each.action(content), text: each.text(content) })),
    (each) => TROUBLE.findIndex((one) => one.text(content) === each.text), (each) => each,
    (each) => make("button", { type: "button", class: "quiet", "data-act": "do",
      onclick: () => perform("modem", "api/modem", { action: each.action }) }, each.text));
}

async function load() {
  if (loading) {
    return;
  }
  loading = true;
  try {
    while (revision === null || revision < wanted) {
      const content = await read("api/handset");
      revision = content.revision;
      draw(content);
    }
  } catch {
    revision = null; // the next event asks again
  } finally {
    loading = false;
  }
}

export function showHandset(event) {
  wanted = event.revision;
  load();
}

export function reloadHandset(state) {
  byId("handset").hidden = !state.handset;
  if (state.handset) {
    revision = null;
    wanted = 0;
    load();
  }
}

export function startHandset() {
  const text = byId("handset-text");
  byId("handset-form").addEventListener("submit", async (event) => {
    event.preventDefault();
    const written = text.value;
    if (written === "") {
      text.focus();
      return;
    }
    byId("handset-send").disabled = true;
    if (await perform("handset", "api/handset", { text: written }) && text.value === written) {
      text.value = "";
    }
    byId("handset-send").disabled = false;
    text.focus();
  });
  text.addEventListener("keydown", (event) => {
    if (event.key === "Enter" && !event.shiftKey && !event.isComposing) {
      event.preventDefault();
      byId("handset-form").requestSubmit();
    }
  });
}
