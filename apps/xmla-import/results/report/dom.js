// Elements and texts. Names come from a server and are only ever appended as text, never parsed as
// markup.

/** Creates an element. Functions become event listeners; null children are skipped. */
function make(name, attributes, ...children) {
  return fill(document.createElement(name), attributes, children);
}

function makeSVG(name, attributes, ...children) {
  return fill(document.createElementNS("http://www.w3.org/2000/svg", name), attributes, children);
}

function fill(element, attributes, children) {
  for (const [key, value] of Object.entries(attributes || {})) {
    if (typeof value === "function") element.addEventListener(key, value);
    else if (value !== null && value !== false) element.setAttribute(key, value === true ? "" : value);
  }
  for (const child of children.flat(Infinity))
    if (child !== null && child !== undefined) element.append(child);
  return element;
}

// Control, format and other characters that are invisible or change how their neighbours look.
const activeCharacter =
  /[\u0000-\u001f\u007f-\u00a0\u00ad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180b-\u180f\u200b-\u200f\u2028-\u202e\u2060-\u206f\u3164\ufe00-\ufe0f\ufeff\uffa0\ufff0-\ufffd]|\p{Cs}|[\u{e0000}-\u{e0fff}]/gu;
const longText = 300; // characters that are shown at first

/** Appends text with active characters made visible. */
function appendVisible(parent, text) {
  let from = 0;
  for (const match of text.matchAll(activeCharacter)) {
    parent.append(text.slice(from, match.index));
    const code = match[0].codePointAt(0).toString(16).toUpperCase().padStart(4, "0");
    parent.append(make("span", { class: "code" }, "U+" + code));
    from = match.index + match[0].length;
  }
  parent.append(text.slice(from));
}

/** A name of the server: isolated from the direction of its neighbours, and cut if it is long. */
function nameOf(text) {
  if (text === "") return make("span", { class: "none" }, "(no name)");
  return bounded(make("bdi"), text);
}

/** A message: the text may be long, but is ours. */
function messageText(text) {
  return bounded(make("bdi"), text, 2000);
}

function bounded(parent, text, limit = longText) {
  if (text.length <= limit) {
    appendVisible(parent, text);
    return parent;
  }
  let end = limit;
  if (/[\ud800-\udbff]/.test(text[end - 1])) --end;
  appendVisible(parent, text.slice(0, end));
  const more = make("button", {
    type: "button", class: "more",
    click: event => {
      event.preventDefault();
      parent.replaceChildren();
      appendVisible(parent, text);
    },
  }, `… show all ${number(text.length)} characters`);
  parent.append(more);
  return parent;
}

/** A short text for drawings. */
function shortened(text, length) {
  const characters = Array.from(text.replace(activeCharacter, "\ufffd").slice(0, 4 * length));
  return characters.length <= length ? characters.join("") : characters.slice(0, length - 1).join("") + "…";
}

/** The display name, followed by the server's name if that is different. */
function named(record) {
  if (record.name === "" || record.name === record.externalName) return nameOf(record.externalName);
  return [nameOf(record.name), " ", make("span", { class: "technical" }, nameOf(record.externalName))];
}

const number = new Intl.NumberFormat("en").format;
const compareNames = new Intl.Collator(undefined, { numeric: true }).compare;

function counted(count, one, many) {
  return `${number(count)} ${count === 1 ? one : many}`;
}
