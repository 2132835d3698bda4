/* Writing a message to be sent or kept. */
import { byId, make } from "./dom.js";
import { LIMIT, measure } from "./measure.js";
import { confirmed, note } from "./notes.js";
import { removeDraft } from "./messages.js";
import { ask } from "./server.js";
import { endOf, sizeOf } from "./words.js";

const NUMBER = /^\+?[0-9]{1,20}$/;

let draft = null; // the message of the Drafts box that is being edited
let busy = false;
let opener = null; // what had the focus before
let begun = ""; // the text with which writing began

/* What people put between digits is not part of the number. */
const number = () => byId("to").value.replace(/[\s().\-/]/g, "");

function problemWithNumber() {
  if (number() === "") {
    return "Whom to? A number is wanted.";
  }
  return NUMBER.test(number()) ? "" : "A number has up to 20 digits, with or without a + in front.";
}

function showProblem(text) {
  const field = byId("to");
  const place = byId("to-problem");
  place.textContent = text;
  place.hidden = text === "";
  field.setAttribute("aria-invalid", String(text !== ""));
}

function update() {
  const text = byId("text").value;
  const measured = measure(text);
  byId("count").textContent = sizeOf(measured);
  byId("count").classList.toggle("over", measured.tooLong);
  const place = byId("text-warnings");
  const wanted = measured.warnings.join("\n");
  if (place.dataset.shown !== wanted) { // or a screen reader would say the same with each letter
    place.dataset.shown = wanted;
    place.replaceChildren(...measured.warnings.map((warning) => make("li", {}, warning)));
  }
  byId("send").disabled = busy || text === "" || measured.tooLong;
  byId("save").disabled = busy || text === "" || measured.bytes > LIMIT;
}

function setBusy(value, words = "") {
  busy = value;
  byId("composer-state").textContent = words;
  byId("to").readOnly = value;
  byId("text").readOnly = value;
  update();
}

function close() {
  byId("composer").hidden = true;
  document.body.classList.remove("composing");
  draft = null;
  (opener?.isConnected ? opener : byId("write")).focus();
}

async function perform(kind, path, words) {
  const problem = problemWithNumber();
  showProblem(problem);
  if (problem) {
    byId("to").focus();
    return;
  }
  setBusy(true, words);
  try {
    const job = await ask(path, { to: number(), text: byId("text").value });
    note(endOf(kind, job), !job.ok);
    if (job.ok || job.code === "failed") { // a message that failed is in the Sent box, to be tried again from there
      const old = draft;
      close();
      if (old && job.ok) {
        await removeDraft(old);
      }
    }
  } catch (problemOnTheWay) {
    note(endOf(kind, problemOnTheWay), true);
  } finally {
    setBusy(false);
  }
}

const isOpen = () => !byId("composer").hidden;

/* True when nothing that was written would be lost, or may be. */
async function mayLeave() {
  const text = byId("text").value;
  if (busy || !isOpen() || text === "" || text === begun) {
    return !busy;
  }
  return confirmed("Discard the text?", "It was neither sent nor saved as a draft.", "Discard");
}

/* `what`: {to, text, draft}, each of which may be missing. */
export async function openComposer(what = {}) {
  const focused = document.activeElement;
  if (!await mayLeave()) {
    byId("text").focus();
    return;
  }
  if (!isOpen()) {
    opener = focused;
  }
  begun = what.text ?? "";
  draft = what.draft ?? null;
  byId("composer-title").textContent = draft ? "Draft" : what.to ? `To ${what.to}` : "New message";
  byId("to").value = what.to ?? "";
  byId("text").value = begun;
  showProblem("");
  byId("composer").hidden = false;
  document.body.classList.add("composing");
  update();
  byId(what.to ? "text" : "to").focus();
}

async function closeIfMay() {
  if (await mayLeave()) {
    close();
  }
}

export function startComposer() {
  byId("write").addEventListener("click", () => openComposer());
  byId("text").addEventListener("input", update);
  byId("to").addEventListener("change", () => showProblem(byId("to").value === "" ? "" : problemWithNumber()));
  byId("composer").addEventListener("submit", (event) => {
    event.preventDefault();
    perform("send", "api/messages", "Sending…");
  });
  byId("save").addEventListener("click", () => perform("draft", "api/drafts", "Saving…"));
  byId("composer-close").addEventListener("click", closeIfMay);
  byId("composer").addEventListener("keydown", (event) => {
    if (event.key === "Escape") {
      event.preventDefault(); // it would close the question as well
      closeIfMay();
    } else if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) {
      byId("composer").requestSubmit();
    }
  });
}
