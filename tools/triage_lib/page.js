"use strict";
// The page of a triage. Every text in the data is foreign: it reaches the document as a text node only, with control characters made
// visible. What is long is built when it is unfolded, and in portions, so that many thousand runs stay quick.
(() => {

const data = JSON.parse(document.getElementById("data").textContent);
const OUTCOMES = {succeeded: "succeeded", failed: "failed", crashed: "crashed", "did-not-return": "did not return"};
const WORST_FIRST = ["crashed", "failed", "did-not-return", "succeeded"];
const PRODUCTS = {antivirus: "anti-virus", antispyware: "anti-spyware", firewall: "firewall", none: "none named"};
const PRODUCT_OF_MODE = {av: "antivirus", as: "antispyware", fw: "firewall"};
const RUNS_AT_ONCE = 50, DUMPS_AT_ONCE = 30, GROUPS_AT_ONCE = 8, LINES_AT_ONCE = 200, ROWS_AT_ONCE = 50;

// --- the document --------------------------------------------------------------------------------------------------------------

const $ = id => document.getElementById(id);

/** Shows what would be invisible, or change how the text around it reads: control characters, marks of direction, halves of pairs. */
const visible = text => String(text).replace(/[\p{Cc}\p{Cf}\p{Cs}]/gu, c => c === "\t" ? c : `\\u{${c.codePointAt(0).toString(16)}}`);

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

const nodes = children => children.flat(Infinity).filter(child => child !== null && child !== undefined && child !== false)
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
const sentence = text => foreign(/^[a-z]+([ ,]|$)/.test(text) && !/^(wsc|wscsvc|winmgmt|setup) /.test(text) ? text[0].toUpperCase() + text.slice(1) : text);

const count = (number, one, many = one + "s") => `${number.toLocaleString("en")} ${number === 1 ? one : many}`;
const both = list => list.length < 2 ? list.join("") : `${list.slice(0, -1).join(", ")} and ${list.at(-1)}`;

/** A term and what it is; those without a value are left out. */
const terms = (name, rows) => h("dl." + name, null, rows.filter(row => row[1])
  .map(([term, ...value]) => [h("dt", null, term), h("dd", null, value)]));

const advice = (meaning, remedy) => terms("advice", [["Meaning", meaning && sentence(meaning)], ["Look at, or do", remedy && sentence(remedy)]]);

/** Builds the first items, and the others when they are asked for. */
function portions(place, items, size, build, what) {
  let next = 0;
  const more = h("button.button.more", {type: "button", onclick: () => { const first = add(); (first.matches("details") ? first.firstChild : first).focus(); }});
  function add() {
    const elements = items.slice(next, next + size).map(build);
    place.append(...elements);
    next += elements.length;
    const rest = items.length - next;
    more.textContent = rest > size ? `Show ${size} more of the ${count(rest, "other " + what)}` : `Show the ${count(rest, "other " + what)}`;
    more.hidden = !rest;
    return elements[0];
  }
  place.replaceChildren();
  if (items.length) add(); else more.hidden = true;
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
  failed: () => [svg("rect", {class: "body", x: x - r, y: y - r, width: 2 * r, height: 2 * r, rx: r / 3.5}),
                 svg("path", {class: "cut", d: `M${x - r / 2.4} ${y - r / 2.4}L${x + r / 2.4} ${y + r / 2.4}M${x + r / 2.4} ${y - r / 2.4}L${x - r / 2.4} ${y + r / 2.4}`})],
  crashed: () => [svg("path", {class: "body", d: `M${x} ${y - r * 1.1}L${x + r * 1.15} ${y + r}H${x - r * 1.15}Z`}),
                  svg("path", {class: "cut", d: `M${x} ${y - r / 4}V${y + r / 3.5}M${x} ${y + r / 1.45}v.01`})],
  "did-not-return": () => [svg("circle", {class: "hollow", cx: x, cy: y, r: r - 1})],
}[outcome] ?? (() => [svg("circle", {class: "body", cx: x, cy: y, r: r * .72})]))();

const mark = outcome => svg("svg", {class: "mark", viewBox: "0 0 16 16", "aria-hidden": "true"}, shape(outcome));
const outcomeLabel = outcome => outcome && h("span.outcome", {"data-outcome": outcome}, mark(outcome), OUTCOMES[outcome] ?? outcome);

const SECOND = 1000, MINUTE = 60 * SECOND, HOUR = 60 * MINUTE, DAY = 24 * HOUR;

// --- times: a log has its machine's local time, without a zone; a dump has UTC ---------------------------------------------------

const MONTHS = ["January", "February", "March", "April", "May", "June", "July", "August", "September", "October", "November", "December"];
const at = text => text ? Date.parse(text.endsWith("Z") ? text : text + "Z") : NaN;
const two = number => String(number).padStart(2, "0");
const iso = time => new Date(time).toISOString().slice(0, -1);

const day = (time, long) => { const d = new Date(time), month = MONTHS[d.getUTCMonth()]; return `${d.getUTCDate()} ${long ? month : month.slice(0, 3)} ${d.getUTCFullYear()}`; };
function clock(time, parts = "seconds") {
  const d = new Date(time);
  const minutes = `${two(d.getUTCHours())}:${two(d.getUTCMinutes())}`;
  return parts === "minutes" ? minutes : `${minutes}:${two(d.getUTCSeconds())}` + (parts === "all" ? "." + String(d.getUTCMilliseconds()).padStart(3, "0") : "");
}
const moment = (time, parts) => Number.isNaN(time) ? "at an unknown time" : `${day(time)}, ${clock(time, parts)}`;

function period(from, to) {
  if (Number.isNaN(from) || Number.isNaN(to)) return "";
  const parts = to - from < 120000 ? "seconds" : "minutes";
  if (clock(from, parts) === clock(to, parts) && to - from < MINUTE) return `${day(from, true)}, ${clock(from)}`;
  return day(from) === day(to) ? `${day(from, true)}, ${clock(from, parts)} to ${clock(to, parts)}` : `${day(from, true)}, ${clock(from, "minutes")} to ${day(to, true)}, ${clock(to, "minutes")}`;
}

function lasted(seconds) {
  if (seconds < 1) return `${Math.round(seconds * 1000)} ms`;
  if (seconds < 60) return `${seconds < 10 ? seconds.toFixed(1) : Math.round(seconds)} s`;
  const minutes = Math.floor(seconds / 60);
  return minutes < 60 ? `${minutes} min ${Math.round(seconds % 60)} s` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

const machines = new Map(data.machines.map(machine => [machine.name, machine]));

/** A moment in UTC as the clocks of these machines showed it, where that is known and the same on all. */
function localOf(text, names) {
  const offsets = new Set(names.map(name => machines.get(name)?.utc_offset ?? null));
  const [offset] = offsets;
  return offsets.size === 1 && offset !== null ? at(text) + offset * 60000 : NaN;
}

function momentOf(text, names) {
  if (!text) return "at an unknown time";
  if (!text.endsWith("Z")) return moment(at(text));
  const local = localOf(text, names);
  return Number.isNaN(local) ? moment(at(text)) + " UTC" : moment(local);
}

// --- the data, ready to be asked -----------------------------------------------------------------------------------------------

const dumps = new Map(data.dumps.map(dump => [dump.id, dump]));
const runs = new Map(data.runs.map(run => [run.id, run]));
const groups = new Map(data.groups.map(group => [`${group.by}:${group.key}`, group]));
const failures = data.groups.filter(group => group.by === "failure");
const places = data.groups.filter(group => group.by === "signature");
const total = {
  runs: data.machines.reduce((sum, machine) => sum + machine.runs, 0),
  dumps: data.machines.reduce((sum, machine) => sum + machine.dumps, 0),
  wrong: failures.reduce((sum, group) => sum + group.runs, 0),
};
for (const run of data.runs) run.time = at(run.begin);
for (const dump of data.dumps) dump.local = localOf(dump.time, [dump.machine]);
const times = data.runs.flatMap(run => [run.time, at(run.end)]).filter(time => !Number.isNaN(time));
const earliest = times.reduce((least, time) => Math.min(least, time), Infinity), latest = times.reduce((most, time) => Math.max(most, time), -Infinity);

function productsOf(run) {
  const {mode, products} = run.request ?? {};
  const named = PRODUCT_OF_MODE[mode] ? [PRODUCT_OF_MODE[mode]] : products ?? [];
  return named.length ? named : ["none"];
}

const groupOfRun = run => run.outcome === "succeeded" || !run.failure ? null : groups.has("failure:" + run.failure.id) ? "failure:" + run.failure.id : "failure:others";
const groupOfDump = dump => groups.has("signature:" + dump.signature) ? "signature:" + dump.signature : "signature:others";
const dumpTitle = dump => groups.get("signature:" + dump.signature)?.title ?? (dump.exception?.name ?? "a dump that was asked for") + (dump.module ? ` in ${dump.module}` : "");
const dumpsOf = run => run.dumps.map(id => dumps.get(id)).filter(Boolean);

const wordsOf = dump => [dump.path, dump.machine, dump.process, dumpTitle(dump), dump.exception?.code, dump.exception?.name, dump.comment, dump.writer, dump.windows, dump.version, dump.signature,
  ...dump.stack.flatMap(frame => [frame.module, frame.offset, frame.function, frame.file && `${frame.file}:${frame.line}`])];
const searched = new WeakMap();
function haystack(item, words) {
  let text = searched.get(item);
  if (text === undefined) searched.set(item, text = words().filter(word => word !== null && word !== undefined).join("\n").toLowerCase());
  return text;
}
const runHaystack = run => haystack(run, () => [run.command_line, run.request?.words, run.error, run.failure?.title, run.failure?.meaning, run.result, run.result_meaning, run.process, run.machine, run.log, run.begin,
  run.windows, run.version, ...run.causes.flatMap(cause => [cause.text, cause.code, cause.meaning]), ...run.lines.map(line => line.text), ...dumpsOf(run).flatMap(wordsOf)]);
const dumpHaystack = dump => haystack(dump, () => wordsOf(dump));

// --- what is shown: the fragment of the address holds all of it -------------------------------------------------------------------

const NOTHING = {outcome: [], product: [], machine: "", group: "", text: "", from: "", to: "", order: "", run: ""};
let state = {...NOTHING};

function readAddress() {
  const found = new URLSearchParams(location.hash.slice(1));
  state = {...NOTHING};
  for (const [name, value] of found) {
    if (!(name in NOTHING)) continue;
    state[name] = Array.isArray(NOTHING[name]) ? value.split(",").filter(Boolean) : value;
  }
}

function address(changes) {
  const wanted = {...state, ...changes};
  const found = new URLSearchParams(Object.entries(wanted).filter(([, value]) => value.length).map(([name, value]) => [name, String(value)]));
  return "#" + String(found).replaceAll("%2C", ",").replaceAll("%3A", ":").replaceAll("%2F", "/");
}

/** Shows something else; `step` when the browser's way back shall lead here. */
function show(changes, step) {
  const wanted = address(changes);
  state = {...state, ...changes};
  if (wanted !== (location.hash || "#")) history[step ? "pushState" : "replaceState"](null, "", wanted);
  render();
}

/** What the text filter asks for: words, all of them, and what stands in quotes as it stands. */
const wordsWanted = () => (state.text.toLowerCase().match(/"[^"]+"|[^\s"]+/g) ?? []).map(word => word.replaceAll('"', ""));

function tests() {
  const found = [];
  const words = wordsWanted();
  const from = at(state.from), to = at(state.to);
  if (state.outcome.length) found.push(run => state.outcome.includes(run.outcome));
  if (state.product.length) found.push(run => productsOf(run).some(product => state.product.includes(product)));
  if (state.machine) found.push(run => run.machine === state.machine);
  if (state.group) found.push(run => groupOfRun(run) === state.group || dumpsOf(run).some(dump => groupOfDump(dump) === state.group));
  if (!Number.isNaN(from)) found.push(run => run.time >= from);
  if (!Number.isNaN(to)) found.push(run => run.time <= to);
  if (words.length) found.push(run => { const text = runHaystack(run); return words.every(word => text.includes(word)); });
  return found;
}

function shownRuns() {
  const wanted = tests();
  const found = data.runs.filter(run => wanted.every(test => test(run)));
  const byTime = (a, b) => (a.time || 0) - (b.time || 0);
  return found.sort({"": (a, b) => byTime(b, a), oldest: byTime, longest: (a, b) => b.seconds - a.seconds}[state.order] ?? byTime);
}

/** A dump is shown with its run; one without a run by what it has itself. */
function shownDumps(found) {
  const shown = new Set(found);
  const words = wordsWanted();
  const from = at(state.from), to = at(state.to);
  return data.dumps.filter(dump => {
    if (state.group.startsWith("signature:") && groupOfDump(dump) !== state.group) return false;
    const run = runs.get(dump.run);
    if (run) return shown.has(run);
    return !state.outcome.length && !state.product.length && !state.group.startsWith("failure:") && (!state.machine || dump.machine === state.machine) && !(dump.local < from) && !(dump.local > to) &&
      words.every(word => dumpHaystack(dump).includes(word));
  });
}

// --- the head of the page --------------------------------------------------------------------------------------------------------

function renderHead() {
  const most = failures.filter(group => group.runs === failures[0].runs && group.machines === failures[0].machines);
  const named = group => h("a", {href: address({...NOTHING, group: `failure:${group.key}`}), "data-then": "list"}, foreign(group.title));
  const listed = most.slice(0, 3).flatMap((group, index) => [index ? "; " : "", named(group)]);
  const share = failures.length && `${count(failures[0].runs, "run")}${machines.size > 1 ? ` on ${count(failures[0].machines, "machine")}` : ""}`;
  fill($("answer"), !total.runs ? "No run of wsc.dll was found in what was read." : !total.wrong ? (total.runs === 1 ? "The one run succeeded." : `All ${count(total.runs, "run")} succeeded.`) :
    total.runs === 1 ? "The one run went wrong." : `${total.wrong === total.runs ? "All" : total.wrong.toLocaleString("en") + " of"} ${count(total.runs, "run")} went wrong.`);
  fill($("most"), most.length > 0 && [failures.length > 1 ? "Most often: " : "It was: ", listed, most.length > 3 && `; and ${most.length - 3} more as often`, total.wrong > 1 && [" ", h("span.quiet", null, `(${share}${most.length > 1 ? " each" : ""})`)]]);
  fill($("read"), `Read: ${both([count(total.runs, "run"), count(total.dumps, "minidump")])} of ${machines.size === 1 ? "one machine, " : count(machines.size, "machine")}`,
    machines.size === 1 && foreign(data.machines[0].name), times.length > 0 && `, from ${period(earliest, latest)}`,
    data.problems.length > 0 && ` · ${count(data.problems.length, "thing")} not understood`, ".");
  const counted = Object.keys(OUTCOMES).map(outcome => [outcome, data.runs.filter(run => run.outcome === outcome).length]).filter(([, number]) => number);
  fill($("share"), counted.map(([outcome, number]) => {
    const part = h("span", {"data-outcome": outcome, title: `${number} ${OUTCOMES[outcome]}`});
    part.style.flexGrow = number;
    part.style.background = "var(--tone)";
    return part;
  }));
  $("share").setAttribute("role", "img");
  $("share").setAttribute("aria-label", both(counted.map(([outcome, number]) => `${number} ${OUTCOMES[outcome]}`)));
  const numbers = {groups: failures.length, runs: data.runs.length, dumps: data.dumps.length, problems: data.problems.length, machines: machines.size};
  for (const link of $("sections").querySelectorAll("a")) {
    link.append(" ", h("span.number", null, numbers[link.dataset.go].toLocaleString("en")));
    if (!numbers[link.dataset.go] && link.dataset.go !== "runs") link.hidden = $(link.dataset.go).hidden = true;
  }
  document.title = total.runs ? `Triage: ${total.wrong} of ${count(total.runs, "run")} went wrong` : "Triage";
  const leftOut = [["runs", "run"], ["dumps", "minidump"], ["problems", "problem"]].filter(([key]) => data.left_out[key]).map(([key, one]) => count(data.left_out[key], one));
  fill($("made"), `Made ${moment(at(data.made), "minutes")} UTC by tools/triage. Times are those of each machine's own clock, as in its log; a time in UTC says so. Nothing is loaded from anywhere, and nothing is sent.`,
    leftOut.length > 0 && ` Left out for the size of the page: ${both(leftOut)}; the groups and the machines count them.`);
}

// --- groups ----------------------------------------------------------------------------------------------------------------------

function spanOf(group) {
  const [first, last] = [momentOf(group.first, group.machine_names), momentOf(group.last, group.machine_names)];
  if (first === last) return first;
  const [date, time] = last.split(", ");
  return `${first} to ${first.startsWith(date) ? time : last}`;
}

const factsOf = (group, ...links) => h("div.facts-line", null,
  h("span", null, count(group.machines, "machine"), machines.size > 1 && group.machine_names.length > 0 && [": ", foreign(clipped(group.machine_names.slice(0, 3).join(", "), 80)), group.machines > 3 && " …"]),
  group.by === "failure" && group.dumps > 0 && h("span", null, count(group.dumps, "minidump")),
  group.first && h("span", null, spanOf(group)),
  group.versions.length > 0 && h("span", null, group.versions.length > 1 ? "versions " : "version ", foreign(group.versions.join(", "))), links);

function groupItem(group) {
  return h("li", {"data-outcome": group.outcome, tabindex: "-1"},
    h("p.count", null, group.runs.toLocaleString("en"), h("small", null, group.runs === 1 ? "run" : "runs")),
    h("div.what", null,
      h("h3", null, sentence(group.title ?? group.key), outcomeLabel(group.outcome)),
      advice(group.meaning, group.remedy),
      factsOf(group, h("a", {href: address({...NOTHING, group: `${group.by}:${group.key}`, run: group.runs === 1 ? group.examples[0] ?? "" : ""}), "data-then": "list"}, group.runs === 1 ? "Show the run" : `Show these ${group.runs.toLocaleString("en")} runs`))));
}

function renderGroups() {
  fill($("groups-lead"), "By the step that failed, the most machines and runs first.");
  $("groups").append(portions($("group-list"), failures, GROUPS_AT_ONCE, groupItem, "group"));
  if (places.length) {
    const rows = h("tbody");
    const more = portions(rows, places, ROWS_AT_ONCE, group => h("tr", {tabindex: "-1"}, h("td.number", null, group.dumps), h("td", null, outcomeLabel(group.outcome), " "),
      h("td", null, h("a", {href: address({...NOTHING, group: `${group.by}:${group.key}`}), "data-then": "dumps"}, foreign(group.title ?? group.key)), factsOf(group))), "place");
    fill($("place-list"), h("div.table", null, h("table", null, h("thead", null, h("tr", null, ["Dumps", "Outcome", "Exception and place"].map(name => h("th", {scope: "col"}, name)))), rows), more));
  }
}

// --- a run -----------------------------------------------------------------------------------------------------------------------

function summaryOf(outcome, strong, second, when, ...rest) {
  return h("summary", null, outcome, h("span.title", null, strong, second), h("span.when", null, h("span", null, when), rest.map(text => h("span", {title: visible(text)}, text))));
}

/** The words of the failure that tell its run from others; a bare number would say nothing without its name. */
const fieldsOf = run => Object.values(run.failure.fields).filter(value => !/^[-\d]*$/.test(value) && !run.command_line?.startsWith(value)).join(", ");

function runItem(run) {
  const asked = run.request?.words ?? (run.command_line === null ? "no command line in the log" : run.command_line);
  const wrong = run.outcome !== "succeeded" && run.failure;
  const details = unfolding({"data-run": run.id, "data-outcome": run.outcome},
    summaryOf(outcomeLabel(run.outcome),
      wrong ? h("strong", null, sentence(clipped(run.failure.title, 200)), fieldsOf(run) && [" ", h("code.foreign.quiet", null, clipped(fieldsOf(run), 120))]) : null,
      h(wrong ? "span.second" : "span", null, sentence(clipped(asked, 300))),
      [moment(run.time), " · ", lasted(run.seconds)], ...(machines.size > 1 ? [run.machine] : [])),
    () => runContent(run));
  details.addEventListener("toggle", () => {
    if (details.open ? state.run !== run.id : state.run === run.id) { state.run = details.open ? run.id : ""; history.replaceState(null, "", address({})); }
  });
  return details;
}

/** The command line with the words marked that are wrong. */
function commandLine(run) {
  const parts = [];
  let rest = run.command_line;
  for (let room = 50; room && rest; --room) {
    const places = run.request?.wrong.filter(Boolean).map(word => [rest.indexOf(word), word]).filter(([place]) => place >= 0) ?? [];
    if (!places.length) break;
    const [place, word] = places.reduce((a, b) => b[0] < a[0] || (b[0] === a[0] && b[1].length > a[1].length) ? b : a);
    parts.push(rest.slice(0, place), h("mark", null, word));
    rest = rest.slice(place + word.length);
  }
  return h("code.foreign", null, parts, rest);
}

function verdict(run) {
  const result = run.result && [code(run.result), " ", run.result_meaning && sentence(run.result_meaning)];
  const remedy = run.result && data.results[run.result]?.remedy;
  if (!run.failure || run.outcome === "succeeded") return h("div.verdict", {"data-outcome": run.outcome}, h("p", null, run.outcome === "succeeded" ? "It succeeded." : `It ${OUTCOMES[run.outcome] ?? run.outcome}.`), terms("advice", [["Result", result]]));
  const fields = Object.entries(run.failure.fields).filter(([, value]) => !run.error?.includes(value));
  return h("div.verdict", {"data-outcome": run.outcome},
    terms("advice", [
      ["Meaning", run.failure.meaning && sentence(run.failure.meaning)],
      ["Look at, or do", run.failure.remedy ? sentence(run.failure.remedy) : remedy && sentence(remedy)],
      ["In this run", fields.length > 0 && fields.map(([name, value]) => [h("span.quiet", null, name.toLowerCase(), " "), code(value), " "])],
      ["The log says", run.error && code(run.error)],
      ["Because of", run.causes.length > 0 && run.causes.map(cause => h("div", null, code(cause.text), cause.code && [" ", code(cause.code)], cause.meaning && [" – ", sentence(cause.meaning)]))],
      ["Result", result],
    ]));
}

function stepsTable(run) {
  const most = run.steps.reduce((longest, step) => Math.max(longest, step.seconds), 0) || 1;
  return [h("h4", null, "Where the time went"), h("table.steps", null,
    h("thead", null, h("tr", null, h("th", {scope: "col"}, "Step"), h("th.right", {scope: "col"}, "Time"), h("th.long", {"aria-hidden": "true"}))),
    h("tbody", null, run.steps.map(step => {
      const bar = h("span.bar");
      bar.style.width = `${100 * step.seconds / most}%`;
      return h("tr", null, h("td", null, sentence(step.step)), h("td.right.number", null, lasted(step.seconds)), h("td.long", {"aria-hidden": "true"}, bar));
    })))];
}

function linesTable(run) {
  const body = h("tbody");
  let before = null;
  const more = portions(body, run.lines, LINES_AT_ONCE, line => {
    const text = line.id === null ? null : data.texts[line.id];
    const explained = text && line.id !== before && (text.meaning || text.remedy);
    before = line.id;
    const time = at(line.at);
    return h(`tr${text?.fault || line.level === "error" || line.level === "fatal" ? ".fault" : ""}`, {tabindex: "-1"},
      h("td.number.at", null, Number.isNaN(time) ? "" : clock(time, "all")), h("td.number.thread", null, line.thread), h("td.level", null, line.level), h("td.tag.foreign", null, line.tag),
      h("td.text", null, h(`code.foreign${text ? "" : ".elsewhere"}`, null, line.text)),
      h("td.explained", null, explained && [text.meaning && sentence(text.meaning), text.remedy && h("div", null, h("b", null, "Look at, or do: "), foreign(text.remedy))]));
  }, "line");
  return [h("h4", null, "The log, line by line"),
    run.lines.length ? h("table.lines", null, h("thead", null, h("tr", null, [["at", "Time"], ["thread", "Thread"], ["level", "Level"], ["tag", "Tag"], ["text", "Line"], ["says", "What it means"]]
      .map(([name, title]) => h(`th.${name}`, {scope: "col"}, title)))), body) : null, more,
    run.left_out > 0 && h("p.note", null, run.lines.length ? `${count(run.left_out, "line")} in the middle are left out here; they are in ${visible(run.log)}.` : `All ${count(run.left_out, "line")} are left out for the size of the page; they are in ${visible(run.log)}.`)];
}

function runContent(run) {
  const cut = [run.begin_cut && "the log begins in the middle of this run", run.end_cut && "the log ends in the middle of it", run.clock_back && "the clock was set back meanwhile"].filter(Boolean);
  return [
    verdict(run),
    terms("facts", [
      ["Command line", run.command_line === null ? h("span.quiet", null, "not in the log") : h("div.command", null, commandLine(run))],
      ["Wrong in it", run.request?.wrong.length > 0 && run.request.wrong.slice(0, 20).map(word => [h("mark.foreign.mono", null, word || "(an empty word)"), " "])],
      ["Asked for", run.request && sentence(run.request.words)],
      ["When", `${moment(run.time, "all")}, for ${lasted(run.seconds)}` + (run.begin_utc && at(run.begin_utc) !== run.time ? ` (${moment(at(run.begin_utc), "all")} UTC)` : "")],
      ["Where", [foreign(run.machine), ", ", foreign(run.log), `, process ${run.process}`]],
      ["System", run.windows || run.version ? [run.windows && foreign(run.windows), run.windows && run.version && ", ", run.version && ["wsc.dll ", foreign(run.version)]] : null],
      ["Worth knowing", cut.length > 0 && sentence(both(cut))],
      ["Logged, survived", run.faults.length > 0 && run.faults.map(id => h("div", null, foreign(data.texts[id]?.title ?? id), data.texts[id]?.meaning && [" – ", foreign(data.texts[id].meaning)]))],
    ]),
    dumpsOf(run).length > 0 && [h("h4", null, dumpsOf(run).length === 1 ? "Its minidump" : "Its minidumps"), h("div.dumps-of-run", null, dumpsOf(run).map(dump => dumpItem(dump, true, dumpsOf(run).length === 1)))],
    linesTable(run),
    run.steps.length > 0 && stepsTable(run),
  ];
}

// --- a dump ----------------------------------------------------------------------------------------------------------------------

const CAUSES = {crash: "crashed", "fatal-error": "failed"};
const WRITTEN = {crash: "written when the process crashed", "fatal-error": "written where a fatal error was thrown", asked: "written because somebody asked for it"};
const kindOf = dump => CAUSES[dump.cause] ? outcomeLabel(CAUSES[dump.cause]) : h("span.outcome", null, "asked for");

function dumpItem(dump, ofRun, open) {
  return unfolding({"data-dump": dump.id, "data-outcome": CAUSES[dump.cause], open},
    summaryOf(kindOf(dump), h("strong.foreign", null, clipped(dumpTitle(dump), 300)), h("span.second.foreign.mono", null, dump.path), momentOf(dump.time, [dump.machine]), ...(machines.size > 1 ? [dump.machine] : [])),
    () => dumpContent(dump, ofRun));
}

function access(exception) {
  const [how, where] = exception.parameters;
  const word = {0: "reading", 1: "writing", 8: "executing"}[Number(how)];
  return exception.code === "0xc0000005" && word && where ? `, ${word} ${where}` : "";
}

function dumpContent(dump, ofRun) {
  const exception = dump.exception, run = runs.get(dump.run);
  const innermost = dump.stack.findIndex(frame => frame.ours), named = dump.stack.some(frame => frame.function);
  return [
    dump.stack_note && h("p.note", null, sentence(dump.stack_note), dump.stack_note.endsWith(".") ? "" : "."),
    dump.stack.length > 0 && h("div.scroll", {tabindex: "0", role: "region", "aria-label": "Stack"}, h("table.stack", null,
      h("thead", null, h("tr", null, (named ? ["Function, innermost first", "Source", "Module"] : ["Module and offset, innermost first"]).map(name => h("th", {scope: "col"}, name)))),
      h("tbody", null, dump.stack.map((frame, index) => h(`tr${frame.ours ? ".ours" : ""}${index === innermost ? ".innermost" : ""}`, null,
        named && [h("td.function", null, frame.function ? code(frame.function) : h("span.quiet", null, "unknown"), frame.inlined && [" ", h("span.badge", null, "inlined")]),
          h("td", null, frame.file ? code(frame.file + (frame.line === null ? "" : `:${frame.line}`)) : "")],
        h("td", null, code(`${frame.module ?? "no module"}${frame.offset ? "+" + frame.offset : ""}`))))))),
    !dump.stack.length && h("p.empty", null, "No stack could be read."),
    terms("facts", [
      ["Exception", exception ? [code(exception.code), ` ${exception.name}${access(exception)}, at `, code(exception.address), `, thread ${exception.thread}`] : h("span.quiet", null, "none")],
      ["Parameters", exception?.parameters.length > 0 && code(exception.parameters.join("  "))],
      ["Written", [WRITTEN[dump.cause] ?? dump.cause, dump.writer && [", by ", foreign(dump.writer)], `, ${momentOf(dump.time, [dump.machine])}`]],
      ["File", [code(dump.path), ` of ${visible(dump.machine)}, ${dump.size.toLocaleString("en")} bytes, process ${dump.process ?? "unknown"}`]],
      ["Run", run && !ofRun && h("a", {href: address({run: run.id}), "data-then": "run"}, sentence(run.request?.words ?? "its run"))],
      ["Comment", dump.comment && foreign(dump.comment)],
      ["System", dump.windows || dump.version ? [dump.windows && foreign(dump.windows), dump.windows && dump.version && ", ", dump.version && ["wsc.dll ", foreign(dump.version)]] : null],
      ["Symbols", dump.symbols.length > 0 && dump.symbols.map(image => h("div", null, code(image.module), image.matches ? " matches the symbols" : " does not match any symbols at hand"))],
      ["Signature", code(dump.signature)],
    ])];
}

// --- the timeline ------------------------------------------------------------------------------------------------------------------

const STEPS = [1, 2, 5, 10, 20, 50, 100, 200, 500, ...[1, 2, 5, 10, 15, 30].map(n => n * SECOND), ...[1, 2, 5, 10, 15, 30].map(n => n * MINUTE), ...[1, 2, 3, 6, 12].map(n => n * HOUR), ...[1, 2, 7, 14, 30, 61, 91, 182, 365, 1826].map(n => n * DAY)];

function renderTimeline(found) {
  const place = $("timeline");
  const dated = found.filter(run => !Number.isNaN(run.time));
  const caption = $("timeline-caption");
  place.replaceChildren();
  if (!dated.length) { fill(caption); return; }
  const width = Math.max(280, place.clientWidth || 280);
  const first = dated.reduce((least, run) => Math.min(least, run.time), Infinity), last = dated.reduce((most, run) => Math.max(most, run.time), -Infinity);
  const slots = Math.floor(width / 15), cell = width / slots, span = Math.max(last - first, 1000);
  const bins = Array.from({length: slots}, () => []);
  for (const run of dated) bins[Math.floor((run.time - first) / span * (slots - 1))].push(run);
  const most = bins.reduce((highest, bin) => Math.max(highest, bin.length), 0);
  const single = most <= 12, top = 18, room = single ? most * cell : 150, bottom = top + room, height = bottom + 26;
  fill(caption, `When they began, ${period(first, last)}. ${single ? "One sign for each run" : `Up to ${most} runs side by side`}; choose one to look closer.`);

  const picture = svg("svg", {viewBox: `0 0 ${width} ${height}`, height, role: "group", "aria-label": `Timeline of ${count(dated.length, "run")}; the arrow keys go from one to the next`});
  const step = STEPS.find(size => span / size <= width / 95) ?? STEPS.at(-1);
  let shownDay = "";
  for (let tick = Math.ceil(first / step) * step; tick <= last; tick += step) {
    const x = (tick - first) / span * (slots - 1) * cell + cell / 2;
    if (x > width - 30) break;
    const date = day(tick).replace(/ \d+$/, "");
    const label = step >= DAY ? (step >= 182 * DAY ? day(tick).slice(-8) : date) : clock(tick, step < SECOND ? "all" : step < MINUTE ? "seconds" : "minutes");
    const anchor = x < 30 ? "start" : "middle";
    picture.append(svg("line", {class: "grid", x1: x, x2: x, y1: top - 8, y2: bottom + 5}), svg("text", {x: anchor === "start" ? 0 : x, y: bottom + 20, "text-anchor": anchor}, label));
    if (step < DAY && date !== shownDay && day(first) !== day(last)) picture.append(svg("text", {x: x + 4, y: top - 6}, shownDay = date));
  }
  picture.append(svg("line", {class: "axis", x1: 0, x2: width, y1: bottom + .5, y2: bottom + .5}));
  bins.forEach((bin, index) => {
    if (!bin.length) return;
    const x = index * cell;
    const counted = WORST_FIRST.map(outcome => [outcome, bin.filter(run => run.outcome === outcome).length]).filter(([, number]) => number);
    const words = `${moment(bin[0].time)}: ${both(counted.map(([outcome, number]) => `${number} ${OUTCOMES[outcome]}`))}`;
    const drawn = [];
    let y = bottom;
    for (const [outcome, number] of counted) {
      if (single) {
        for (let n = 0; n < number; ++n, y -= cell) drawn.push(svg("g", {"data-outcome": outcome, class: "mark"}, shape(outcome, x + cell / 2, y - cell / 2, cell * .38)));
      } else {
        const tall = Math.max(2.5, number / most * room);
        drawn.push(svg("rect", {class: "segment", "data-outcome": outcome, x: x + 1.5, y: y - tall, width: cell - 3, height: tall - .5}));
        y -= tall;
      }
    }
    const choose = () => {
      const times = bin.map(run => run.time);
      const from = Math.min(...times), to = Math.max(...times);
      if (bin.length === 1 || to - from < slots) return bin.length === 1 || from === to ? goToRun(bin[0].id, true) : show({from: iso(from), to: iso(to), run: ""}, true);
      return show({from: iso(from), to: iso(to), run: ""}, true);
    };
    picture.append(svg("g", {class: "bin", role: "button", tabindex: -1, "aria-label": words}, svg("title", {}, words),
      svg("rect", {class: "area", x, y: top - 8, width: cell, height: bottom - top + 8}), drawn));
    const button = picture.lastChild;
    button.addEventListener("click", choose);
    button.addEventListener("keydown", event => {
      const all = [...picture.querySelectorAll(".bin")], here = all.indexOf(button);
      const next = {ArrowRight: all[here + 1], ArrowLeft: all[here - 1], Home: all[0], End: all.at(-1)}[event.key];
      if (event.key === "Enter" || event.key === " ") choose();
      else if (next) { button.setAttribute("tabindex", -1); next.setAttribute("tabindex", 0); next.focus(); }
      else return;
      event.preventDefault();
    });
  });
  picture.querySelector(".bin").setAttribute("tabindex", 0);
  if (!single) picture.append(svg("text", {x: 0, y: top - 8}, count(most, "run")));
  place.append(picture);
}

// --- filters and lists --------------------------------------------------------------------------------------------------------------

function chips(place, name, labels, counted, toned) {
  fill(place, Object.entries(labels).map(([value, label]) => h(`label.chip${counted[value] ? "" : ".none"}`, {"data-outcome": toned ? value : null},
    h("input", {type: "checkbox", name, value, onchange: () => show({[name]: [...place.querySelectorAll("input:checked")].map(input => input.value), run: ""}, true)}),
    toned && mark(value), label, h("span.number", null, (counted[value] ?? 0).toLocaleString("en")))));
}

function prepareFilters() {
  const counted = {};
  for (const run of data.runs) for (const key of [run.outcome, ...productsOf(run)]) counted[key] = (counted[key] ?? 0) + 1;
  chips($("outcomes"), "outcome", OUTCOMES, counted, true);
  chips($("products"), "product", PRODUCTS, counted, false);
  fill($("machine"), h("option", {value: ""}, "all"), data.machines.map(machine => h("option", {value: machine.name}, clipped(machine.name, 80))));
  $("machine-field").hidden = machines.size < 2;
  const typed = () => { clearTimeout(waiting); waiting = setTimeout(() => { if ($("text").value.trim() !== state.text) show({text: $("text").value.trim(), run: ""}); }, 150); };
  for (const event of ["input", "change"]) $("text").addEventListener(event, typed);
  for (const name of ["machine", "order"]) $(name).addEventListener("change", () => show({[name]: $(name).value, run: ""}, true));
  $("filters").addEventListener("submit", event => event.preventDefault());
}

/** A filter that has no field of its own, with the way to take it off. */
const narrowed = (words, changes) => h("button.button", {type: "button", onclick: () => { show(changes, true); $("runs-title").focus({preventScroll: true}); }}, words, h("span", {"aria-hidden": "true"}, "✕"), h("span.skip", null, "take off"));

const isNarrowed = () => Object.keys(NOTHING).some(name => name !== "order" && name !== "run" && state[name].length);

let lastRuns = [], waiting = 0;

function render() {
  for (const input of $("filters").querySelectorAll("input[type=checkbox]")) input.checked = state[input.name].includes(input.value);
  if ($("text").value.trim() !== state.text) $("text").value = state.text;
  $("machine").value = state.machine;
  $("order").value = state.order;

  const found = lastRuns = shownRuns();
  const group = groups.get(state.group);
  fill($("shown"), found.length === data.runs.length ? `All ${count(found.length, "run")}` : [h("strong", null, found.length.toLocaleString("en")), ` of ${count(data.runs.length, "run")}`]);
  fill($("narrowed"),
    state.group && narrowed(["Only: ", foreign(clipped(group?.title ?? state.group, 80))], {group: ""}),
    (state.from || state.to) && narrowed(`Only ${period(at(state.from), at(state.to)) || "a part of the time"}`, {from: "", to: ""}),
    isNarrowed() && h("button.button", {type: "button", onclick: clear}, "Show all runs"));
  renderTimeline(found);
  const list = $("run-list");
  const more = portions(list, found, RUNS_AT_ONCE, runItem, "run");
  $("run-list").nextElementSibling.matches(".more") && $("run-list").nextElementSibling.remove();
  list.after(more);
  if (!found.length) fill(list, h("p.empty", null, data.runs.length ? "No run is like this. " : "No runs.", isNarrowed() && h("button.button", {type: "button", onclick: clear}, "Show all runs")));

  const shown = shownDumps(found);
  fill($("dumps-lead"), shown.length === data.dumps.length ? "By exception and place; then each with its stack." : `${shown.length} of ${count(data.dumps.length, "minidump")} belong to what is chosen above.`);
  const dumpList = $("dump-list");
  const moreDumps = portions(dumpList, shown, DUMPS_AT_ONCE, dump => dumpItem(dump, false, false), "minidump");
  dumpList.nextElementSibling?.remove();
  dumpList.after(moreDumps);

  $("linked").replaceChildren();
  if (state.run) openRun(state.run);
}

function clear() {
  clearTimeout(waiting);
  show({...NOTHING, order: state.order}, true);
  $("runs-title").focus({preventScroll: true});
}

/** Unfolds a run where it stands in the list; above it when it is not there. */
function openRun(id) {
  const run = runs.get(id);
  if (!run) return null;
  let details = $("run-list").querySelector(`[data-run="${CSS.escape(id)}"]`);
  if (!details) {
    details = $("linked").querySelector(`[data-run="${CSS.escape(id)}"]`) ?? runItem(run);
    fill($("linked"), h("p", null, lastRuns.includes(run) ? "Chosen; in the list below it comes later:" : "Chosen; the filters hide it in the list below:"), details);
  }
  details.open = true;
  return details;
}

function goToRun(id, step) {
  if (state.run !== id) { state.run = id; history[step ? "pushState" : "replaceState"](null, "", address({})); }
  const details = openRun(id);
  details?.scrollIntoView({block: "start"});
  details?.firstChild.focus({preventScroll: true});
}

function goTo(section) {
  $(section).scrollIntoView({block: "start"});
  $(section + "-title").focus({preventScroll: true});
}

// --- problems and machines -----------------------------------------------------------------------------------------------------------

function tableIn(place, titles, items, row, what) {
  const body = h("tbody");
  const more = portions(body, items, ROWS_AT_ONCE, item => h("tr", {tabindex: "-1"}, row(item)), what);
  fill(place, h("div.table", null, h("div.scroll", {tabindex: "0", role: "region", "aria-labelledby": place.id.replace("-list", "-title")}, h("table", null, h("thead", null, h("tr", null, titles.map(title => h("th", {scope: "col"}, title)))), body)), more));
}

function renderTables() {
  tableIn($("problem-list"), ["Machine", "File", "Why"], data.problems, problem => [h("td", null, foreign(problem.machine)), h("td", null, problem.path === null ? "all of it" : code(problem.path)), h("td", null, foreign(problem.reason))], "problem");
  tableIn($("machine-list"), ["Machine", "Runs", "Minidumps", "Logs", "Lines", "System", "Worth knowing"], data.machines, machine => {
    const known = [machine.utc_offset !== null && `clock ahead of UTC by ${machine.utc_offset} min`, machine.clock_steps > 0 && `clock set back ${machine.clock_steps === 1 ? "once" : machine.clock_steps + " times"}`,
      machine.unread_lines > 0 && `${count(machine.unread_lines, "line")} not like the log`, machine.other_lines > 0 && `${count(machine.other_lines, "line")} of others`].filter(Boolean);
    return [h("td", null, machine.runs ? h("a", {href: address({...NOTHING, machine: machine.name}), "data-then": "list"}, foreign(machine.name)) : foreign(machine.name)),
      [machine.runs, machine.dumps, machine.logs, machine.lines].map(number => h("td.number", null, number.toLocaleString("en"))),
      h("td", null, machine.windows && foreign(machine.windows), machine.versions.length > 0 && [machine.windows ? ", " : "", "wsc.dll ", foreign(machine.versions.join(", "))]), h("td", null, foreign(known.join("; ")))];
  }, "machine");
}

// --- keyboard, links, address ----------------------------------------------------------------------------------------------------------

document.addEventListener("keydown", event => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const typing = event.target.matches("input[type=search], select");
  if (event.key === "/" && !typing) { event.preventDefault(); $("text").focus(); $("text").select(); }
  else if (event.key === "Escape" && (isNarrowed() || $("text").value)) { $("text").value = ""; clear(); }
  else if ((event.key === "ArrowDown" || event.key === "ArrowUp") && event.target.matches(".list > details > summary, #linked > details > summary")) {
    const all = [...document.querySelectorAll("#linked > details > summary, .list > details > summary")].filter(item => item.closest("section") === event.target.closest("section"));
    const next = all[all.indexOf(event.target) + (event.key === "ArrowDown" ? 1 : -1)];
    if (next) { event.preventDefault(); next.focus(); }
  }
});

document.addEventListener("click", event => {
  const link = event.target.closest?.("a[href^='#']");
  if (!link || event.ctrlKey || event.shiftKey || event.metaKey || event.button) return;
  event.preventDefault();
  if (link.dataset.go) return goTo(link.dataset.go);
  if (link.getAttribute("href") !== location.hash) history.pushState(null, "", link.getAttribute("href"));
  readAddress();
  render();
  if (state.run) goToRun(state.run);
  else if (link.dataset.then === "list") { $("runs-title").focus({preventScroll: true}); $("shown").scrollIntoView({block: "start"}); }
  else goTo(link.dataset.then);
});

function follow() {
  readAddress();
  render();
  if (state.run) goToRun(state.run); else if (isNarrowed()) $("shown").scrollIntoView({block: "start"});
}
window.addEventListener("popstate", follow);
let wide = window.innerWidth;
window.addEventListener("resize", () => { if (wide !== window.innerWidth) { wide = window.innerWidth; renderTimeline(lastRuns); } });

renderHead();
renderGroups();
renderTables();
prepareFilters();
follow();

})();
