/* How the SMS manager will split a text, and what becomes of its characters on the way. */

const ESCAPE = "\x1b";
const EXTENSION = new Set("^{}\\[~]|"); // these take two septets (TS 23.038, 6.2.1.1)
const SEPTETS = { alone: 160, part: 153 };
const CHARACTERS = { alone: 70, part: 67 };
export const LIMIT = 4000; // bytes, and septets, that it can work on

const encoder = new TextEncoder();

function partsFor(units, room) {
  if (units === 0) {
    return 0;
  }
  return units <= room.alone ? 1 : Math.ceil(units / room.part);
}

function withEscapes(text) {
  let out = "";
  for (const character of text) {
    out += EXTENSION.has(character) ? ESCAPE + character : character;
  }
  return out;
}

/* A part never ends with an escape, and no part is added for that: what is left over is not sent. */
function septetsLost(septets, parts) {
  let at = 0;
  for (let part = 0; part < parts; part++) {
    let size = Math.min(septets.length - at, SEPTETS.part);
    if (size > 0 && septets[at + size - 1] === ESCAPE && at + size < septets.length) {
      size--;
    }
    at += size;
  }
  return septets.length - at;
}

const point = (value) => `U+${value.toString(16).toUpperCase().padStart(4, "0")}`;

function wideWarnings(text) {
  const beyond = [...new Set(text)].filter((character) => character.codePointAt(0) > 0xffff);
  return beyond.slice(0, 4).map((character) => {
    const value = character.codePointAt(0);
    return `${character} will not arrive: the router can send only half of it, which is ${point(value & 0xffff)}.`;
  }).concat(beyond.length > 4 ? [`The same goes for ${beyond.length - 4} more.`] : []);
}

function narrowWarnings(text) {
  const out = [];
  if (text.includes("`")) {
    out.push("` will arrive as an apostrophe (').");
  }
  if (text.includes("\t")) {
    out.push("A tab will arrive as a space.");
  }
  if (/[\x00-\x08\x0b\x0c\x0e-\x1f\x7f]/.test(text)) {
    out.push("A control character will arrive as a letter.");
  }
  return out;
}

/* {wide, units, parts, left, lost, bytes, tooLong, warnings}: `left` is the room in the last part. */
export function measure(text) {
  const bytes = encoder.encode(text).length;
  const wide = /[^\x00-\x7f]/.test(text);
  const room = wide ? CHARACTERS : SEPTETS;
  const septets = wide ? "" : withEscapes(text);
  const units = wide ? [...text].length : septets.length;
  const parts = partsFor(units, room);
  const lost = !wide && parts > 1 ? septetsLost(septets, parts) : 0;
  const tooLong = bytes > LIMIT || units > LIMIT;
  const warnings = wide ? wideWarnings(text) : narrowWarnings(text);
  if (lost > 0) {
    warnings.push(`The end does not fit into the ${parts} parts: add or remove a few characters.`);
  }
  if (tooLong) {
    warnings.push(`That is too long: the router can send ${LIMIT.toLocaleString("en")} bytes at most.`);
  }
  const left = parts <= 1 ? room.alone - units : parts * room.part - units;
  return { wide, units, parts, left, lost, bytes, tooLong, warnings };
}
