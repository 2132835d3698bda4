/* A PDU, field by field, as the inspector explains it. */
import { byId, make } from "./dom.js";
import { ask } from "./server.js";
import { endOf } from "./words.js";

function anyValue(value) {
  if (value === null || typeof value !== "object") {
    return document.createTextNode(String(value));
  }
  const entries = Object.entries(value);
  return make("dl", { class: "tree" }, ...entries.flatMap(([name, inner]) => [
    make("dt", {}, Array.isArray(value) ? "" : name.replaceAll("_", " ")),
    make("dd", {}, anyValue(inner)),
  ]));
}

function explained(pdu, job) {
  const part = make("section", { class: "pdu-part" }, make("p", { class: "pdu-hex" }, pdu));
  part.append(job.ok ? anyValue(job.details.decoded) : make("p", { class: "problem" }, endOf("inspect", job)));
  return part;
}

export async function inspect(pdus) {
  const body = byId("inspector-body");
  byId("inspector-title").textContent = pdus.length > 1 ? `${pdus.length} PDUs` : "PDU";
  body.replaceChildren(make("p", { class: "note" }, "Reading…"));
  if (!byId("inspector").open) {
    byId("inspector").showModal();
  }
  try {
    const jobs = await Promise.all(pdus.map((pdu) => ask("api/inspect", { pdu })));
    body.replaceChildren(...jobs.map((job, place) => explained(pdus[place], job)));
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
