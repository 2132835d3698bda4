/* A PDU, field by field as the standard has it, and what the SMS manager makes of it. */
import { byId, make } from "./dom.js";
import { inspectPdus } from "./server.js";
import { endOf } from "./words.js";

const FEW = 12; // octets of a field with parts that are shown: its parts have them all

const spaced = (hex) => hex.replace(/..(?=.)/g, "$& ");

/* ---- octets beside meaning ---- */

function octetsOf(field) {
  if (field.bits) {
    return field.bits;
  }
  const whole = spaced(field.octets);
  return field.children && field.octets.length > 2 * FEW ? `${whole.slice(0, 3 * FEW)}…` : whole;
}

function rows(field, depth = 0) {
  const row = make("tr", { class: field.children ? "whole" : null },
    make("td", { class: "at" }, String(field.offset)),
    make("td", { class: "octets" }, octetsOf(field)),
    make("th", { scope: "row", class: `depth-${Math.min(depth, 3)}` }, field.name),
    make("td", { dir: "auto", class: "meaning" }, field.meaning));
  return [row, ...(field.children ?? []).flatMap((child) => rows(child, depth + 1))];
}

function fieldTable(fields) {
  const head = ["At", "Octets", "Field", "Meaning"].map((text) => make("th", { scope: "col" }, text));
  return make("table", { class: "fields" },
    make("caption", { class: "hidden-label" }, "The fields in the order in which they stand"),
    make("thead", {}, make("tr", {}, ...head)), make("tbody", {}, ...fields.flatMap((field) => rows(field))));
}

/* The digits as they are, cut where fields end. */
function hexLine(one) {
  const line = make("p", { class: "pdu-hex" });
  let at = 0;
  for (const field of one.fields) {
    const begin = field.offset * 2;
    const end = begin + field.octets.length;
    if (begin >= at && end > begin) {
      line.append(one.pdu.slice(at, begin), make("span", { title: field.name }, one.pdu.slice(begin, end)));
      at = end;
    }
  }
  line.append(one.pdu.slice(at));
  return line;
}

/* ---- what comes of it ---- */

/* A list of what is there; `facts` are [name, value], the value null where there is nothing to say. */
function factList(facts) {
  return make("dl", { class: "facts" }, ...facts.filter(([, value]) => value !== null && value !== undefined && value !== "")
    .flatMap(([name, value]) => [make("dt", {}, name), make("dd", { dir: "auto" }, value)]));
}

function partOf(concatenation) {
  return concatenation ? `${concatenation.sequence} of ${concatenation.total}, reference ${concatenation.reference}` : null;
}

function septetsOf(septets) {
  return septets ? `${septets.total_bit} bits of body, ${septets.body_len} characters in ${septets.sms7bit_len} octets, ` +
    `${septets.offset} fill bits` : null;
}

/* Text, and where its bytes are no UTF-8 those as well. */
const factsOfText = (name, item, key) => [[name, item[key]], [`${name}, as bytes`, item[`${key}_hex`] ? spaced(item[`${key}_hex`]) : null]];

function daemonView(one) {
  const daemon = one.daemon;
  if (!daemon) {
    const said = one.standard;
    return [make("h4", {}, "What the SMS manager sends with it"),
      factList([["To", said.address], ["Text", said.text], ["Alphabet", said.alphabet], ["Part", partOf(said.concatenation)]])];
  }
  const title = make("h4", {}, "What the SMS manager makes of it");
  if (!daemon.taken) {
    return [title, make("p", { class: "banner bad" }, `It does not take it: ${daemon.refused}`)];
  }
  const log = daemon.log?.length ? [make("details", { class: "log" }, make("summary", {}, "What it logs"),
    make("ul", {}, ...daemon.log.map((line) => make("li", {}, line))))] : [];
  return [title, factList([
    ...factsOfText("From", daemon, "sender"), ...factsOfText("Date", daemon, "date"), ...factsOfText("Text", daemon, "text"),
    ["Part", partOf(daemon.concatenation)], ["Septets", septetsOf(daemon.septets)],
    ...factsOfText("Joined", daemon, "joined")]), ...log];
}

function differences(one) {
  return one.differences.map((each) => make("div", { class: "banner warn difference" },
    make("strong", {}, `The SMS manager differs from the standard: ${each.what}`),
    factList([["Standard", each.standard], ["SMS manager", each.daemon], ["Why", each.why]])));
}

function problems(one) {
  return one.problems.map((each) => make("p", { class: "banner bad" }, `Malformed at octet ${each.offset}: ${each.what}`));
}

function explained(one) {
  const part = one.standard?.concatenation;
  return make("section", { class: "pdu-part" },
    make("h3", {}, part ? `${one.kind}, part ${part.sequence} of ${part.total}` : one.kind),
    hexLine(one), ...problems(one), ...daemonView(one), ...differences(one),
    make("h4", {}, "Octet by octet, by the standard"), fieldTable(one.fields));
}

/* PDUs of one message together, in the order in which they came. */
export async function inspect(pdus) {
  const body = byId("inspector-body");
  byId("inspector-title").textContent = pdus.length > 1 ? `${pdus.length} PDUs` : "PDU";
  body.replaceChildren(make("p", { class: "note" }, "Reading…"));
  if (!byId("inspector").open) {
    byId("inspector").showModal();
  }
  try {
    body.replaceChildren(...(await inspectPdus(pdus)).map(explained));
    body.scrollTop = 0;
  } catch (problem) {
    body.replaceChildren(make("p", { class: "problem" }, endOf("inspect", problem)));
  }
}

export function startInspector() {
  byId("inspector-close").addEventListener("click", () => byId("inspector").close());
  byId("inspector").addEventListener("click", (event) => {
    if (event.target === byId("inspector")) { // beside the sheet
      byId("inspector").close();
    }
  });
}
