/* Writing a message to be sent or kept. */
import { byId, make } from "./dom.js";
import { LIMIT, measure } from "./measure.js";
import { note } from "./notes.js";
import { removeDraft } from "./messages.js";
import { ask } from "./server.js";
import { endOf, sizeOf } from "./words.js";

const NUMBER = /^\+?[0-9]{1,20}$/;

let draft = null; // the message of the Drafts box that is being edited
let busy = false;
let opener = null; // what had the focus before

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

/* `what`: {to, text, draft}, each of which may be missing. */
export function openComposer(what = {}) {
  if (busy) {
    byId("text").focus();
    return;
  }
  opener = document.activeElement;
  draft = what.draft ?? null;
  byId("composer-title").textContent = draft ? "Draft" : what.to ? `To ${what.to}` : "New message";
  byId("to").value = what.to ?? "";
  byId("text").value = what.text ?? "";
  showProblem("");
  byId("composer").hidden = false;
  document.body.classList.add("composing");
  update();
  byId(what.to ? "text" : "to").focus();
}

async function closeUnlessWritten() {
  if (!busy) {
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
  byId("composer-close").addEventListener("click", closeUnlessWritten);
  byId("composer").addEventListener("keydown", (event) => {
    if (event.key === "Escape") {
      closeUnlessWritten();
    } else if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) {
      byId("composer").requestSubmit();
    }
  });
}
