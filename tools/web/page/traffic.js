/* What goes over the modem's port, as it happens. */
import { byId, make } from "./dom.js";
import { inspect } from "./inspector.js";
import { read } from "./server.js";

const MOST = 500; // lines on the page
const KINDS = {
  ">": { name: "command", title: "A command to the modem", arrow: "→" },
  "<": { name: "answer", title: "The modem's answer", arrow: "←" },
  "!": { name: "indication", title: "The modem says so by itself", arrow: "←" },
  "?": { name: "stray", title: "Belongs to nothing that was asked", arrow: "←" },
  "#": { name: "note", title: "About the port", arrow: "·" },
};

let last = 0; // the sequence number of the newest line here
let filling = false;

/* Line ends and Ctrl-Z are there but faint. */
function faint(text) {
  return text.split(/((?:\\r|\\n|\\x1A)+)/).filter((piece) => piece !== "").map((piece) =>
    /^\\[rnx]/.test(piece) ? make("span", { class: "faint" }, piece) : piece);
}

function piece(part) {
  if (typeof part === "string") {
    return faint(part);
  }
  return [make("button", { type: "button", class: "pdu", "aria-label": `Explain the PDU ${part.pdu.slice(0, 16)}…`,
    onclick: () => inspect([part.pdu]) }, part.pdu)];
}

/* The trace has UTC; everything else on the page is local. */
function localTime(at) {
  const date = new Date(at);
  return Number.isNaN(date.getTime()) ? at :
    date.toLocaleTimeString("en-GB", { hour12: false, fractionalSecondDigits: 3, hour: "2-digit", minute: "2-digit", second: "2-digit" });
}

function lineElement(line) {
  const kind = KINDS[line.kind] ?? KINDS["#"];
  return make("li", { class: `line ${kind.name}` },
    make("time", { datetime: line.at, title: line.at }, localTime(line.at)),
    make("span", { class: "kind", title: kind.title }, `${kind.arrow} ${kind.name}`),
    make("code", {}, ...line.parts.flatMap(piece)));
}

function append(lines) {
  const list = byId("lines");
  const fresh = lines.filter((line) => line.seq > last);
  if (fresh.length === 0) {
    return;
  }
  last = fresh.at(-1).seq;
  list.append(...fresh.map(lineElement));
  while (list.childElementCount > MOST) {
    list.firstElementChild.remove();
  }
  if (byId("follow").checked) {
    list.scrollTop = list.scrollHeight;
  }
}

async function fill() {
  if (filling) {
    return;
  }
  filling = true;
  try {
    append((await read(`api/traffic?after=${last}`)).lines);
  } catch {
    // what is missing comes with the next stream
  } finally {
    filling = false;
  }
}

export function showTraffic(event) {
  if (filling || event.lines[0].seq > last + 1) {
    fill();
  } else {
    append(event.lines);
  }
}

/* `anew`: the server is another one, which counts from the beginning. */
export function reloadTraffic(state, anew) {
  byId("traffic").hidden = !state.traffic;
  if (anew) {
    last = 0;
    byId("lines").replaceChildren();
  }
  if (state.traffic) {
    fill();
  }
}

export function startTraffic() {
  byId("traffic-clear").addEventListener("click", () => byId("lines").replaceChildren());
  byId("follow").addEventListener("change", () => {
    const list = byId("lines");
    list.scrollTop = list.scrollHeight;
  });
}
