// What is shown. The fragment of the page's address holds all of it.

const NOTHING = {
  outcome: [],
  product: [],
  machine: "",
  group: "",
  text: "",
  from: "",
  to: "",
  order: "",
  run: ""
};
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
  const found =
    new URLSearchParams(Object.entries(wanted).filter(([, value]) => value.length).map(([name, value]) => [name, String(value)]));
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
  if (state.group)
    found.push(run => groupOfRun(run) === state.group || dumpsOf(run).some(dump => groupOfDump(dump) === state.group));
  if (!Number.isNaN(from)) found.push(run => run.time >= from);
  if (!Number.isNaN(to)) found.push(run => run.time <= to);
  if (words.length)
    found.push(run => {
      const text = runHaystack(run);
      return words.every(word => text.includes(word));
    });
  return found;
}

function shownRuns() {
  const wanted = tests();
  const found = data.runs.filter(run => wanted.every(test => test(run)));
  const byTime = (a, b) => (a.time || 0) - (b.time || 0);
  return found.sort(
    {"": (a, b) => byTime(b, a), oldest: byTime, longest: (a, b) => b.seconds - a.seconds}[state.order] ?? byTime);
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
    return !state.outcome.length && !state.product.length && !state.group.startsWith("failure:") &&
      (!state.machine || dump.machine === state.machine) && !(dump.local < from) && !(dump.local > to) &&
      words.every(word => dumpHaystack(dump).includes(word));
  });
}
