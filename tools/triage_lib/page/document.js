// Elements and texts. Every text in the data is foreign: it reaches the document as a text node only, with control characters
// made visible. What is long is built when it is unfolded, and in portions, so that many thousand runs stay quick.

const data = JSON.parse(document.getElementById("data").textContent);
const OUTCOMES = {
  succeeded: "succeeded",
  failed: "failed",
  crashed: "crashed",
  "did-not-return": "did not return"
};
const WORST_FIRST = ["crashed", "failed", "did-not-return", "succeeded"];
const PRODUCTS = {
  antivirus: "anti-virus",
  antispyware: "anti-spyware",
  firewall: "firewall",
  none: "none named"
};
const PRODUCT_OF_MODE = {av: "antivirus", as: "antispyware", fw: "firewall"};
const RUNS_AT_ONCE = 50, DUMPS_AT_ONCE = 30, GROUPS_OPEN = 6, GROUPS_AT_ONCE = 40, LINES_AT_ONCE = 200, ROWS_AT_ONCE = 50,
      WORDS_SHOWN = 4;

const $ = id => document.getElementById(id);

/** Shows what would be invisible or change how the text around it reads: control characters, marks of direction, half pairs. */
const visible = text =>
  String(text).replace(/[\p{Cc}\p{Cf}\p{Cs}]/gu, c => c === "\t" ? c : `\\u{${c.codePointAt(0).toString(16)}}`);

/** An element; its class, its attributes, and its children: elements, texts, lists of them, or nothing. */
function h(name, attributes, ...children) {
  const [tag, ...classes] = name.split(".");
  const element = document.createElement(tag);
  if (classes.length) element.className = classes.join(" ");
  for (const [key, value] of Object.entries(attributes ?? {})) {
    if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
    else if (value !== null && value !== undefined && value !== false) element.setAttribute(key, value === true ? "" : value);
  }
  element.append(...nodes(children));
  return element;
}

const nodes = children => children.flat(Infinity)
                            .filter(child => child !== null && child !== undefined && child !== false)
                            .map(child => child instanceof Node ? child : document.createTextNode(visible(child)));

function svg(tag, attributes, ...children) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.append(...nodes(children));
  return element;
}

const fill = (place, ...children) => place.replaceChildren(...nodes(children));
const foreign = text => h("span.foreign", null, text);
const code = text => h("code.foreign", null, text);
const clipped = (text, most) => text.length > most ? text.slice(0, most) + "…" : text;

/** A sentence of the catalogue begins with a capital unless it begins with a name. */
const sentence = text => foreign(
  /^[a-z]+([ ,:]|$)/.test(text) && !/^(wsc|wscsvc|winmgmt|setup) /.test(text) ? text[0].toUpperCase() + text.slice(1) : text);

const count = (number, one, many = one + "s") => `${number.toLocaleString("en")} ${number === 1 ? one : many}`;
const both = list => list.length < 2 ? list.join("") : `${list.slice(0, -1).join(", ")} and ${list.at(-1)}`;

/** A term and what it is; those without a value are left out. */
const terms = (name, rows) =>
  h("dl." + name, null, rows.filter(([, value]) => value && value.textContent !== "").map(([term,
    ...value]) => [h("dt", null, term), h("dd", null, value)]));

/** Builds the first items, and the others when they are asked for. */
function portions(place, items, size, build, what) {
  let next = 0;
  const more = h("button.button.more", {
    type: "button",
    onclick: () => {
      const first = add();
      (first.querySelector("summary") ?? first).focus();
    }
  });
  function add() {
    const elements = items.slice(next, next + size).map(build);
    place.append(...elements);
    next += elements.length;
    const rest = items.length - next;
    more.textContent =
      rest > size ? `Show ${size} more of the ${count(rest, "other " + what)}` : `Show the ${count(rest, "other " + what)}`;
    more.hidden = !rest;
    return elements[0];
  }
  place.replaceChildren();
  if (items.length) add();
  else more.hidden = true;
  return more;
}

/** What unfolds; its content is built when it does. */
function unfolding(attributes, summary, content) {
  const details = h("details", attributes, summary);
  details.addEventListener("toggle", () => {
    if (details.open && !details.querySelector(":scope > .inside")) details.append(h("div.inside", null, content()));
  });
  return details;
}

// The second cue beside the colour: a disc, a square with a cross, a triangle, a ring.
const shape = (outcome, x = 8, y = 8, r = 7) => ({
  failed: () => {
    const c = r / 2.4;
    return [
      svg("rect", {class: "body", x: x - r, y: y - r, width: 2 * r, height: 2 * r, rx: r / 3.5}),
      svg("path", {class: "cut", d: `M${x - c} ${y - c}L${x + c} ${y + c}M${x + c} ${y - c}L${x - c} ${y + c}`})
    ];
  },
  crashed: () => [svg("path", {class: "body", d: `M${x} ${y - r * 1.1}L${x + r * 1.15} ${y + r}H${x - r * 1.15}Z`}),
    svg("path", {class: "cut", d: `M${x} ${y - r / 4}V${y + r / 3.5}M${x} ${y + r / 1.45}v.01`})],
  "did-not-return": () => [svg("circle", {class: "hollow", cx: x, cy: y, r: r - 1})],
}[outcome] ??
  (() => [svg("circle", {class: "body", cx: x, cy: y, r: r * .72})]))();

const mark = outcome => svg("svg", {class: "mark", viewBox: "0 0 16 16", "aria-hidden": "true"}, shape(outcome));
const outcomeLabel = outcome =>
  outcome && h("span.outcome", {"data-outcome": outcome}, mark(outcome), OUTCOMES[outcome] ?? outcome);

const SECOND = 1000, MINUTE = 60 * SECOND, HOUR = 60 * MINUTE, DAY = 24 * HOUR;
