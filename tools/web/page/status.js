/* The top of the page: what the router is up to, and what this page is. */
import { byId, keep, make } from "./dom.js";

const SEEN = "introduction-seen";

let modem = null; // what the handset's side tells of the modem
let shown = null; // the state

function chipsOf(state) {
  const service = state.service;
  const chips = [];
  if (!service.daemon) {
    chips.push({ id: "service", text: "SMS manager not running", kind: "bad" });
  } else if (!service.on) {
    chips.push({ id: "service", text: service.sim ? "SMS service off" : "No SIM", kind: "bad", title: service.why_off });
  } else {
    chips.push({ id: "service", text: "SMS service on", kind: "good" });
  }
  chips.push(service.network ? { id: "network", text: service.network, kind: "good", title: "Network" }
    : { id: "network", text: "No network", kind: "bad" });
  if (modem?.reachable && !modem.plugged) {
    chips.push({ id: "modem", text: "Modem unplugged", kind: "bad" });
  }
  return chips;
}

/* What follows from the state for whoever wants to send or awaits something; "" when all is well. */
function consequence(state) {
  const service = state.service;
  if (!service.daemon) {
    return "The SMS manager is not running: nothing comes in and nothing goes out. Below is what it has filed.";
  }
  if (!service.on) {
    return `Nothing comes in and nothing goes out: ${service.why_off}.`;
  }
  return service.network ? "" : "The router is in no network: what you send now will fail.";
}

function drawChips() {
  keep(byId("status"), chipsOf(shown), (chip) => chip.id, (chip) => chip,
    (chip) => make("li", { class: `chip ${chip.kind}`, title: chip.title }, chip.text));
}

export function showModem(content) {
  modem = content;
  if (shown) {
    drawChips();
  }
}

export function showStatus(state) {
  shown = state;
  drawChips();
  const banner = byId("service");
  const text = consequence(state);
  if (banner.textContent !== text) { // or a screen reader would say it again
    banner.textContent = text;
    banner.hidden = text === "";
  }
  const unread = state.boxes.inbox.unread;
  document.title = unread > 0 ? `(${unread}) Router messages` : "Router messages";
}

const STEPS = {
  receive: ["A message comes in", "Type a text on the handset and press Send. It appears in the inbox, unread."],
  receiveReal: ["A message comes in", "What other telephones send to this router's SIM appears in the inbox, unread."],
  reply: ["A reply goes out", "Open the message, press Reply, write, send. The number of parts is counted as you type."],
  traffic: ["See how it works", "Below runs what the SMS manager and the modem say to each other. Click a PDU to have it explained."],
  state: ["What the router reports", "“Sent” means that the modem took the message. No delivery report is asked for."],
};

function showIntroduction(open) {
  byId("intro").hidden = !open;
  byId("help").setAttribute("aria-expanded", String(open));
}

function remembered() {
  try {
    return localStorage.getItem(SEEN) !== null;
  } catch {
    return false; // no storage: it is shown each time
  }
}

function remember() {
  try {
    localStorage.setItem(SEEN, "yes");
  } catch {
    // then it is shown again
  }
}

export function startIntroduction(state) {
  const steps = [state.handset ? STEPS.receive : STEPS.receiveReal, STEPS.reply, state.traffic ? STEPS.traffic : STEPS.state];
  byId("intro-steps").replaceChildren(...steps.map(([title, text]) =>
    make("li", {}, make("strong", {}, title), make("span", {}, text))));
  byId("help").onclick = () => {
    const open = byId("intro").hidden;
    showIntroduction(open);
    if (open) {
      byId("intro-title").focus();
    }
  };
  byId("intro-close").onclick = () => {
    remember();
    showIntroduction(false);
    byId("help").focus();
  };
  showIntroduction(!remembered());
}
