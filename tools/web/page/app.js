/* Starts the page and brings what the server tells to its parts. */
import { openComposer, startComposer } from "./composer.js";
import { byId } from "./dom.js";
import { reloadHandset, showHandset, startHandset } from "./handset.js";
import { startInspector } from "./inspector.js";
import { listen } from "./live.js";
import { showState, startMessages } from "./messages.js";
import { note } from "./notes.js";
import { endSession, onTokenWanted, read, Refused, setInstance, startSession } from "./server.js";
import { showStatus, startIntroduction } from "./status.js";
import { endOf } from "./words.js";
import { reloadTraffic, showTraffic, startTraffic } from "./traffic.js";

let instance = null;
let turn = 0; // of the newest state that is shown: an answer may come in behind an event

function show(state, anew = false) {
  if (!anew && state.turn < turn) {
    return;
  }
  turn = state.turn;
  setInstance(state.instance);
  showStatus(state);
  showState(state, anew);
}

/* A stream has begun: nobody knows what was missed. */
async function refresh() {
  let state;
  try {
    state = await read("api/state");
  } catch {
    return; // the next stream tries again
  }
  const first = instance === null;
  const anew = instance !== state.instance;
  instance = state.instance;
  show(state, anew);
  reloadHandset(state);
  reloadTraffic(state, anew);
  byId("switch").hidden = !state.handset && !state.traffic;
  byId("sign-out").hidden = !state.token;
  document.body.classList.toggle("no-handset", !state.handset);
  document.body.classList.toggle("no-traffic", !state.traffic);
  for (const button of byId("switch").children) {
    button.hidden = byId(button.dataset.panel).hidden;
  }
  if (first) {
    startIntroduction(state);
  }
}

/* On a narrow screen one panel is shown at a time. */
function startSwitch() {
  const buttons = [...byId("switch").children];
  const choose = (panel) => {
    document.body.dataset.panel = panel;
    for (const button of buttons) {
      button.setAttribute("aria-current", String(button.dataset.panel === panel));
    }
  };
  buttons.forEach((button) => button.addEventListener("click", () => choose(button.dataset.panel)));
  choose("router");
}

let signingIn = null; // one dialog for all requests that wait for it

function askForToken() {
  signingIn ??= new Promise((resolve) => {
    const dialog = byId("sign-in");
    const problem = byId("token-problem");
    dialog.oncancel = (event) => event.preventDefault(); // there is nothing behind it
    byId("sign-in-form").onsubmit = async (event) => {
      event.preventDefault();
      try {
        await startSession(byId("token").value);
      } catch (reason) {
        problem.textContent = reason instanceof Refused ? reason.message : "The server is out of reach.";
        problem.hidden = false;
        byId("token").select();
        return;
      }
      byId("token").value = "";
      problem.hidden = true;
      dialog.close();
      signingIn = null;
      resolve();
    };
    dialog.showModal();
  });
  return signingIn;
}

/* What was shown must not stay behind for the next one, so the page starts anew. */
async function signOut() {
  try {
    await endSession();
  } catch (problem) {
    note(endOf("session", problem), true);
    return;
  }
  location.reload();
}

function showLost(lost) {
  const banner = byId("offline");
  if (banner.hidden === lost) {
    banner.hidden = !lost;
    banner.textContent = lost ? "The server does not answer. What is shown may be old; the page keeps trying." : "";
  }
}

onTokenWanted(askForToken);
startMessages(openComposer);
startComposer();
startHandset();
startTraffic();
startInspector();
startSwitch();
byId("sign-out").addEventListener("click", signOut);
await refresh();
listen({
  hello: refresh,
  state: (state) => show(state),
  handset: showHandset,
  traffic: showTraffic,
  lost: showLost,
  refused: refresh,
});
