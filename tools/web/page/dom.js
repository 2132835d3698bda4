/* Making and keeping elements. Text only ever becomes text. */

export const byId = (id) => document.getElementById(id);

/* make("p", {class: "note", onclick: f, hidden: true}, "text", element, ...) */
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name.startsWith("on")) {
      element.addEventListener(name.slice(2), value);
    } else if (value === true) {
      element.setAttribute(name, "");
    } else if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(name, value);
    }
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

/* Makes the children of `parent` show `items`, in order. An element stays as long as the item's `keyOf` and `stateOf` do;
 * when only the state is another, `build(item, old)` may give the old one back, changed. Focus survives. */
export function keep(parent, items, keyOf, stateOf, build) {
  const old = new Map([...parent.children].map((child) => [child.dataset.key, child]));
  const focused = parent.contains(document.activeElement) ? document.activeElement : null;
  const focusedKey = focused?.closest("[data-key]")?.dataset.key;
  let place = parent.firstElementChild;
  for (const item of items) {
    const key = String(keyOf(item));
    const state = JSON.stringify(stateOf(item));
    let element = old.get(key);
    old.delete(key);
    if (element?.dataset.state !== state) {
      const fresh = build(item, element);
      fresh.dataset.key = key;
      fresh.dataset.state = state;
      if (element && element !== fresh) {
        element.replaceWith(fresh);
        place = place === element ? fresh : place;
      }
      element = fresh;
    }
    if (element === place) {
      place = place.nextElementSibling;
    } else {
      parent.insertBefore(element, place);
    }
  }
  const next = old.get(focusedKey)?.nextElementSibling;
  old.forEach((gone) => gone.remove());
  if (focused && !parent.contains(document.activeElement)) {
    const home = [...parent.children].find((child) => child.dataset.key === focusedKey);
    (home?.querySelector(`[data-act="${focused.dataset.act}"]`) ?? (home ?? next ?? parent).querySelector("button"))?.focus();
  }
}

/* The pieces of a text that has bytes that are none: `\xED` marks among the characters. */
export function textPieces(item, name) {
  const runs = item[`${name}_runs`];
  if (!runs) {
    return [item[name]];
  }
  return runs.map((run) => {
    if (typeof run === "string") {
      return run;
    }
    const bytes = run.hex.split(" ").map((byte) => `\\x${byte}`).join("");
    return make("span", { class: "bytes", title: "These bytes are no character" }, bytes);
  });
}

/* "2024/03/05 14:07:00" or "2024-03-05 14:07:00", as the store has it, in few words. */
export function shortDate(stored, now = new Date()) {
  const found = /^(\d{4})[-/](\d\d)[-/](\d\d) (\d\d):(\d\d):(\d\d)/.exec(stored);
  if (!found) {
    return stored;
  }
  const [year, month, day, hour, minute] = found.slice(1).map(Number);
  const date = new Date(year, month - 1, day, hour, minute);
  if (date.toDateString() === now.toDateString()) {
    return `${found[4]}:${found[5]}`;
  }
  const words = { day: "numeric", month: "short" };
  if (year !== now.getFullYear()) {
    words.year = "numeric";
  }
  return `${date.toLocaleDateString("en-GB", words)}, ${found[4]}:${found[5]}`;
}

export function timeElement(stored) {
  const machine = stored.replaceAll("/", "-").replace(" ", "T");
  return make("time", { datetime: machine, title: stored }, shortDate(stored));
}

export const count = (number, one, many = `${one}s`) => `${number.toLocaleString("en")} ${number === 1 ? one : many}`;
