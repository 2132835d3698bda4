/* Short notes at the edge of the page, read out by screen readers, and questions that want a yes. */
import { byId, make } from "./dom.js";

const SHOWN = 6000; // milliseconds
const SHOWN_BAD = 12000;

/* One with a `topic` takes the place of the one before it. */
export function note(text, bad = false, topic = null) {
  const element = make("p", { class: bad ? "toast bad" : "toast", "data-topic": topic }, text);
  if (topic) {
    byId("notes").querySelector(`[data-topic="${topic}"]`)?.remove();
  }
  const gone = () => element.remove();
  element.append(make("button", { type: "button", class: "close", "aria-label": "Close", onclick: gone }, "×"));
  byId("notes").append(element);
  setTimeout(gone, bad ? SHOWN_BAD : SHOWN);
}

/* True when it was answered with `yes`. */
export function confirmed(title, text, yes) {
  const dialog = byId("confirm");
  byId("confirm-title").textContent = title;
  byId("confirm-text").textContent = text;
  byId("confirm-yes").textContent = yes;
  dialog.returnValue = "no";
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "yes"), { once: true });
  });
}
