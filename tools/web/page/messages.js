/* The router's boxes: lists, reading, deleting. */
import { byId, count, keep, make, textPieces, timeElement } from "./dom.js";
import { confirmed, note } from "./notes.js";
import { ask, read } from "./server.js";
import { endOf } from "./words.js";

const PAGE = 100; // messages shown at first, and more at a time
const EMPTY = {
  inbox: ["Nothing has arrived yet.", "What is sent to this router's SIM appears here."],
  sent: ["Nothing was sent yet.", "What the router sends, and what it could not send, appears here."],
  drafts: ["There are no drafts.", "“Save as draft” keeps a message here for later."],
};

const boxes = Object.fromEntries(Object.keys(EMPTY).map((name) =>
  [name, { name, revision: null, messages: [], shown: PAGE, loading: false }]));
let current = "inbox";
let open = null; // the key of the open message
let state = null;
let compose = null; // opens the composer

const rowKey = (message) => `${message.number}-${message.key}`;
const reachable = (phone) => /^\+?[0-9]{1,20}$/.test(phone);
const reference = (message) => ({ number: message.number, key: message.key });

/* ---- what is asked of the router ---- */

async function perform(kind, path, body, quiet = false) {
  try {
    const job = await ask(path, body);
    if (!job.ok || !quiet) {
      note(endOf(kind, job), !job.ok);
    }
    return job.ok;
  } catch (problem) {
    note(endOf(kind, problem), true);
    return false;
  }
}

const markRead = (messages, quiet) =>
  perform("read", "api/read", { messages: messages.map(reference) }, quiet);

async function remove(box, message) {
  const who = message.phone || "nobody";
  if (await confirmed("Delete this message?", `${box === "inbox" ? "From" : "To"} ${who}. It cannot be brought back.`,
    "Delete")) {
    await perform("delete", "api/delete", { box, messages: [reference(message)] });
  }
}

async function removeAll() {
  const box = current;
  const total = state.boxes[box].total;
  if (await confirmed(`Delete ${total === 1 ? "the message" : `all ${total} messages`}?`,
    `Everything in “${byId(`tab-${box}`).dataset.name}” goes. It cannot be brought back.`, "Delete all")) {
    await perform("delete", "api/delete", { box, all: true });
  }
}

/* ---- a message ---- */

const BADGES = {
  unread: ["new", "unread"],
  read: ["", ""],
  sent: ["", "sent"],
  failed: ["bad", "not sent"],
  draft: ["", "draft"],
  damaged: ["bad", "damaged"],
};

function badge(message) {
  const [kind, text] = message.problem ? BADGES.damaged : BADGES[message.state] ?? BADGES.damaged;
  return text ? make("span", { class: `badge ${kind}`, title: message.problem }, text) : null;
}

function actions(box, message) {
  const button = (act, text, onclick, kind = "quiet") =>
    make("button", { type: "button", class: kind, "data-act": act, onclick }, text);
  const list = [];
  if (box === "inbox") {
    if (reachable(message.phone)) {
      list.push(button("reply", "Reply", () => compose({ to: message.phone })));
    }
  } else if (box === "sent") {
    list.push(button("again", message.state === "sent" ? "Send again" : "Try again",
      () => compose({ to: message.phone, text: message.text })));
  } else {
    list.push(button("edit", "Edit and send", () => compose({ to: message.phone, text: message.text, draft: message })));
  }
  list.push(button("delete", "Delete", () => remove(box, message), "quiet danger"));
  return make("p", { class: "actions" }, ...list);
}

function explanation(box, message) {
  const what = {
    inbox: ["Received ", " (the service centre's clock)"],
    sent: message.state === "sent" ? ["Handed to the modem ", "; nobody reports whether it arrived"] :
      ["Tried ", "; the modem or the network refused it"],
    drafts: ["Saved ", ""],
  }[box];
  return `${what[0]}${message.date}${what[1]}. Message ${message.number} of the box.`;
}

function toggle(box, message) {
  const key = rowKey(message);
  open = open === key ? null : key;
  draw();
  if (open === key && box === "inbox" && message.state === "unread") {
    markRead([message], true);
  }
}

/* A message never changes but for its state, so whoever is about to press a button still finds it there. */
function update(row, message) {
  row.classList.toggle("unread", message.state === "unread");
  row.querySelector(".badge")?.remove();
  row.querySelector(".who").after(...[badge(message)].filter(Boolean));
  return row;
}

function build(box, message, old) {
  const isOpen = open === rowKey(message);
  if (old && old.classList.contains("open") === isOpen) {
    return update(old, message);
  }
  const id = `text-${box}-${message.number}`;
  const act = () => toggle(box, boxes[box].messages.find((each) => rowKey(each) === rowKey(message)) ?? message);
  const head = make("button", { type: "button", class: "message-head", "aria-expanded": String(isOpen), "aria-controls": id,
    "data-act": "open", onclick: act },
  make("span", { class: "who" }, make("bdi", {}, ...(message.phone ? textPieces(message, "phone") : ["(no number)"]))),
  timeElement(message.date));
  const text = make("p", { class: isOpen ? "message-text" : "message-text closed", id, dir: "auto" },
    ...textPieces(message, "text"));
  if (!isOpen) {
    text.addEventListener("click", act);
  }
  const row = make("li", { class: isOpen ? "message open" : "message" }, head, text);
  if (isOpen) {
    row.append(make("p", { class: "note" }, explanation(box, message)), actions(box, message));
  }
  return update(row, message);
}

/* ---- the box ---- */

function drawTools(box) {
  const now = state.boxes[box.name];
  const capacity = state.capacity;
  const meter = byId("capacity");
  meter.max = capacity;
  meter.high = capacity * 0.9;
  meter.optimum = 0;
  meter.value = now.total;
  byId("capacity-text").textContent = `${now.total.toLocaleString("en")} of ${capacity.toLocaleString("en")}`;
  byId("failed").hidden = now.failed === 0;
  byId("failed").textContent = `${now.failed.toLocaleString("en")} not sent`;
  byId("read-all").hidden = box.name !== "inbox";
  byId("read-all").disabled = state.boxes.inbox.unread === 0;
  byId("delete-all").disabled = now.total === 0;
  const warning = byId("box-warning");
  warning.hidden = !now.full;
  warning.textContent = box.name === "inbox" ?
    "The inbox is full. Whatever arrives now is lost: delete something." :
    "This box is full. Nothing more is kept in it until something is deleted.";
}

function drawTabs() {
  const names = { inbox: "Inbox", sent: "Sent", drafts: "Drafts" };
  for (const [name, text] of Object.entries(names)) {
    const tab = byId(`tab-${name}`);
    const now = state.boxes[name];
    tab.dataset.name = text;
    tab.setAttribute("aria-selected", String(name === current));
    tab.tabIndex = name === current ? 0 : -1;
    const number = name === "inbox" ? now.unread : now.total;
    const label = name === "inbox" ? `${number} unread` : count(number, "message");
    tab.replaceChildren(text, ...(number > 0 ? [make("span", { class: "number", "aria-label": label }, String(number))] : []));
  }
  byId("box").setAttribute("aria-labelledby", `tab-${current}`);
}

export function draw() {
  if (!state) {
    return;
  }
  const box = boxes[current];
  drawTabs();
  drawTools(box);
  const list = box.messages.slice(0, box.shown);
  keep(byId("messages"), list, rowKey, (message) => [current, message, open === rowKey(message)],
    (message, old) => build(current, message, old));
  byId("more").hidden = box.messages.length <= box.shown;
  const empty = byId("empty");
  empty.hidden = box.revision === null || box.messages.length > 0;
  empty.replaceChildren(make("strong", {}, EMPTY[current][0]), make("span", {}, EMPTY[current][1]));
}

function announce(box, before) {
  if (box.name !== "inbox" || before === null) {
    return;
  }
  const known = new Set(before.map(rowKey));
  const fresh = box.messages.filter((each) => each.state === "unread" && !known.has(rowKey(each)));
  if (fresh.length > 0) {
    note(fresh.length === 1 ? `New message from ${fresh[0].phone}` : `${fresh.length} new messages`, false, "arrival");
  }
}

async function load(box) {
  if (box.loading) {
    return;
  }
  box.loading = true;
  try {
    while (state && box.revision !== state.boxes[box.name].revision) {
      const answer = await read(`api/messages/${box.name}`);
      const before = box.revision === null ? null : box.messages;
      box.messages = answer.messages;
      box.revision = answer.revision;
      state.boxes[box.name].revision = Math.max(box.revision, state.boxes[box.name].revision);
      announce(box, before);
    }
  } catch {
    box.revision = null; // the next state asks again
  } finally {
    box.loading = false;
  }
  draw();
}

/* `anew`: the server is another one, whose revisions mean nothing to what is here. */
export function showState(fresh, anew) {
  state = fresh;
  if (anew) {
    Object.values(boxes).forEach((box) => { box.revision = null; });
  }
  draw();
  Object.values(boxes).forEach(load);
}

export function select(name) {
  current = name;
  open = null;
  boxes[name].shown = PAGE;
  draw();
  byId("box").scrollTop = 0;
}

/* Removes a draft that was sent. */
export const removeDraft = (draft) =>
  perform("delete", "api/delete", { box: "drafts", messages: [reference(draft)] }, true);

export function startMessages(openComposer) {
  compose = openComposer;
  const tabs = [...document.querySelectorAll("[role=tab]")];
  tabs.forEach((tab, place) => {
    tab.addEventListener("click", () => select(tab.dataset.box));
    tab.addEventListener("keydown", (event) => {
      const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
      if (step) {
        const next = tabs[(place + step + tabs.length) % tabs.length];
        select(next.dataset.box);
        next.focus();
        event.preventDefault();
      }
    });
  });
  byId("read-all").addEventListener("click", () => perform("read", "api/read", { all: true }));
  byId("delete-all").addEventListener("click", removeAll);
  byId("more").addEventListener("click", () => {
    boxes[current].shown += PAGE;
    draw();
  });
}
