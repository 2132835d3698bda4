/* Talks to the server: reads, and asks for things to be done, each at most once. */

const RETRY_AFTER = [500, 1500, 4000]; // milliseconds
const WAIT = 20; // seconds that one question may stay open

let instance = ""; // of the server's life; part of every request's id
let signIn = null; // asks for the token; resolves when it was right

export function setInstance(value) {
  instance = value;
}

export function onTokenWanted(ask) {
  signIn = ask;
}

const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

/* The page's own failures look like the server's: {error, message}. */
export class Refused extends Error {
  constructor(status, body) {
    super(body.message ?? `The server answered ${status}.`);
    this.status = status;
    this.code = body.error ?? "http";
    this.details = body;
  }
}

async function exchange(method, path, body) {
  const options = { method, cache: "no-store", credentials: "same-origin" };
  if (body !== undefined) {
    options.headers = { "Content-Type": "application/json" };
    options.body = JSON.stringify(body);
  }
  const answer = await fetch(path, options);
  const content = await answer.json().catch(() => ({}));
  if (answer.status === 401 && signIn && path !== "api/session") {
    await signIn();
    return exchange(method, path, body);
  }
  if (!answer.ok) {
    throw new Refused(answer.status, content);
  }
  return content;
}

export const read = (path) => exchange("GET", path);
export const startSession = (token) => exchange("POST", "api/session", { token });
/* Changes nothing, so it needs no id. */
export const inspectPdus = (pdus) => exchange("POST", "api/inspect", { pdus });

export const endSession = () => exchange("POST", "api/session/end", {});

/* The same question again after a lost connection; the server knows the id. */
async function insist(method, path, body) {
  for (const wait of RETRY_AFTER) {
    try {
      return await exchange(method, path, body);
    } catch (problem) {
      if (problem instanceof Refused) {
        throw problem;
      }
      await pause(wait);
    }
  }
  return exchange(method, path, body);
}

function newId() {
  const bytes = crypto.getRandomValues(new Uint8Array(12)); // randomUUID is not there without TLS
  return `${instance}-${[...bytes].map((byte) => byte.toString(16).padStart(2, "0")).join("")}`;
}

/* Asks for something to be done and awaits how it ended: {ok, code, details}. Throws Refused, or TypeError when the
 * server is out of reach, in which case nobody knows how it ended. */
export async function ask(path, body) {
  const id = newId();
  let job = await insist("POST", path, { ...body, id });
  while (job.state !== "finished") {
    job = await insist("GET", `api/requests/${id}?wait=${WAIT}`);
  }
  return job;
}
