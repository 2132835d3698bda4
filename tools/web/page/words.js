/* What is said about how things ended. "Sent" means that the modem took it: nobody knows whether it arrived. */
import { count } from "./dom.js";

const ENDS = {
  "service-off": "The SMS service is off, so the router did not take the request.",
  "no-daemon": "The SMS manager is not running.",
  "not-taken": "The SMS manager did not take the request: the SMS service is off, or it is very busy.",
  "no-answer": "The SMS manager took the request, but has not said how it ended.",
  "queue-full": "Too many messages wait to be sent already.",
  "changed": "The message has changed meanwhile. Look again.",
  "unreachable": "The connection to the server broke. Look into the box before you try again.",
  "restarted": "The server was started anew meanwhile. Look into the box before you try again.",
  "busy": "The server has too much to do. Try again in a moment.",
};

const FAILED = {
  send: "Not sent: the modem or the network refused it. It is in the Sent box, marked as failed.",
  draft: "The draft was not saved. The box may be full.",
  read: "The message could not be marked as read.",
  delete: "It could not be deleted.",
  handset: "The handset could not send it.",
  modem: "The simulator refused.",
};

/* `job`: {ok, code, details} of a request, or what was thrown instead. */
export function endOf(kind, job) {
  if (job instanceof Error) {
    return ENDS[job.code] ?? (job.code ? job.message : ENDS.unreachable);
  }
  if (!job.ok) {
    if (kind === "send" && job.code === "no-answer") {
      return `${ENDS["no-answer"]} It may still go out: look into the Sent box before you try again.`;
    }
    return ENDS[job.code] ?? job.details.message ?? FAILED[kind];
  }
  if (kind === "send") {
    const parts = job.details.parts > 1 ? ` in ${job.details.parts} parts` : "";
    return `Sent${parts}: the modem took it. Whether it arrives, nobody reports.`;
  }
  return { draft: "Saved as a draft.", read: "Marked as read.", delete: "Deleted.",
    handset: "Sent by the handset.", modem: "Done." }[kind] ?? "Done.";
}

/* "2 parts, 7-bit: 161 of 306": what is written under the text. */
export function sizeOf(measured) {
  if (measured.units === 0) {
    return "";
  }
  const number = (value) => value.toLocaleString("en");
  return `${count(measured.parts, "part")}, ${measured.wide ? "UCS-2" : "7-bit"}: ` +
    `${number(measured.units)} of ${number(measured.units + measured.left)}`;
}
