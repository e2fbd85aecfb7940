// Filters, lists and tables.

function chips(place, name, labels, counted, toned) {
  fill(place,
    Object.entries(labels).map(
      ([value, label]) => h(`label.chip${counted[value] ? "" : ".none"}`, {"data-outcome": toned ? value : null}, h("input", {
        type: "checkbox",
        name,
        value,
        onchange: () => show({[name]: [...place.querySelectorAll("input:checked")].map(input => input.value), run: ""}, true)
      }),
        toned && mark(value), label, h("span.number", null, (counted[value] ?? 0).toLocaleString("en")))));
}

function prepareFilters() {
  const counted = {};
  for (const run of data.runs)
    for (const key of [run.outcome, ...productsOf(run)]) counted[key] = (counted[key] ?? 0) + 1;
  chips($("outcomes"), "outcome", OUTCOMES, counted, true);
  chips($("products"), "product", PRODUCTS, counted, false);
  fill($("machine"), h("option", {value: ""}, "all"),
    data.machines.map(machine => h("option", {value: machine.name}, clipped(machine.name, 80))));
  $("machine-field").hidden = machines.size < 2;
  let waiting = 0;
  const typed = () => {
    clearTimeout(waiting);
    waiting = setTimeout(() => {
      if ($("text").value.trim() !== state.text) show({text: $("text").value.trim(), run: ""});
    }, 150);
  };
  for (const event of ["input", "change"]) $("text").addEventListener(event, typed);
  for (const name of ["machine", "order"]) $(name).addEventListener("change", () => show({[name]: $(name).value, run: ""}, true));
  $("filters").addEventListener("submit", event => event.preventDefault());
}

/** A filter that has no field of its own, with the way to take it off. */
const narrowed = (words, changes) => h("button.button", {
  type: "button",
  onclick: () => {
    show(changes, true);
    $("runs-title").focus({preventScroll: true});
  }
},
  words, h("span", {"aria-hidden": "true"}, "✕"), h("span.skip", null, "take off"));

const isNarrowed = () => Object.keys(NOTHING).some(name => name !== "order" && name !== "run" && state[name].length);

let lastRuns = [];

function render() {
  for (const input of $("filters").querySelectorAll("input[type=checkbox]"))
    input.checked = state[input.name].includes(input.value);
  if ($("text").value.trim() !== state.text) $("text").value = state.text;
  $("machine").value = state.machine;
  $("order").value = state.order;

  const found = lastRuns = shownRuns();
  const group = groups.get(state.group);
  const left = data.left_out.runs > 0 && `; ${count(data.left_out.runs, "other")} are counted, but not in this page`;
  const all = found.length === data.runs.length;
  fill($("shown"), all ? "All " : [h("strong", null, found.length.toLocaleString("en")), " of "], count(data.runs.length, "run"),
    left);
  fill($("narrowed"), state.group && narrowed(["Only: ", foreign(clipped(group?.title ?? state.group, 80))], {group: ""}),
    (state.from || state.to) &&
      narrowed(`Only ${period(at(state.from), at(state.to)) || "a part of the time"}`, {from: "", to: ""}),
    isNarrowed() && h("button.button", {type: "button", onclick: clear}, "Show all runs"));
  renderTimeline(found);
  const list = $("run-list");
  const more = portions(list, found, RUNS_AT_ONCE, runItem, "run");
  $("run-list").nextElementSibling.matches(".more") && $("run-list").nextElementSibling.remove();
  list.after(more);
  if (!found.length)
    fill(list,
      h("p.empty", null, data.runs.length ? "No run is like this. " : "No runs.",
        isNarrowed() && h("button.button", {type: "button", onclick: clear}, "Show all runs")));

  const shown = shownDumps(found);
  fill($("dumps-lead"),
    shown.length === data.dumps.length
      ? "By exception and place; then each with its stack."
      : `${shown.length} of ${count(data.dumps.length, "minidump")} belong to what is chosen above.`);
  const dumpList = $("dump-list");
  const moreDumps = portions(dumpList, shown, DUMPS_AT_ONCE, dump => dumpItem(dump, false, false), "minidump");
  dumpList.nextElementSibling?.remove();
  dumpList.after(moreDumps);

  $("linked").replaceChildren();
  if (state.run) openRun(state.run);
}

function clear() {
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
    fill($("linked"),
      h("p", null,
        lastRuns.includes(run) ? "Chosen; in the list below it comes later:" : "Chosen; the filters hide it in the list below:"),
      details);
  }
  details.open = true;
  return details;
}

function goToRun(id, step) {
  if (state.run !== id) {
    state.run = id;
    history[step ? "pushState" : "replaceState"](null, "", address({}));
  }
  const details = openRun(id);
  details?.scrollIntoView({block: "start"});
  details?.firstChild.focus({preventScroll: true});
}

function goTo(section) {
  $(section).scrollIntoView({block: "start"});
  $(section + "-title").focus({preventScroll: true});
}

function tableIn(place, titles, items, row, what) {
  const body = h("tbody");
  const more = portions(body, items, ROWS_AT_ONCE, item => h("tr", {tabindex: "-1"}, row(item)), what);
  fill(place,
    h("div.table", null,
      h("div.scroll", {tabindex: "0", role: "region", "aria-labelledby": place.id.replace("-list", "-title")},
        h("table", null, h("thead", null, h("tr", null, titles.map(title => h("th", {scope: "col"}, title)))), body)),
      more));
}

function renderTables() {
  tableIn($("problem-list"), ["Machine", "File", "Why"], data.problems,
    problem => [h("td", null, foreign(problem.machine)), h("td", null, problem.path === null ? "all of it" : code(problem.path)),
      h("td", null, foreign(problem.reason))],
    "problem");
  tableIn(
    $("machine-list"), ["Machine", "Runs", "Minidumps", "Logs", "Lines", "System", "Worth knowing"], data.machines, machine => {
      const known = [
        machine.utc_offset !== null && `clock ahead of UTC by ${machine.utc_offset} min`,
        machine.clock_steps > 0 && `clock set back ${machine.clock_steps === 1 ? "once" : machine.clock_steps + " times"}`,
        machine.unread_lines > 0 && `${count(machine.unread_lines, "line")} not like the log`,
        machine.other_lines > 0 && `${count(machine.other_lines, "line")} of others`
      ].filter(Boolean);
      return [
        h("td", null,
          machine.runs ? h("a", {href: address({...NOTHING, machine: machine.name}), "data-then": "list"}, foreign(machine.name))
                       : foreign(machine.name)),
        [machine.runs, machine.dumps, machine.logs, machine.lines].map(
          number => h("td.number", null, number.toLocaleString("en"))),
        h("td", null, systemOf({windows: machine.windows, version: machine.versions.join(", ")})),
        h("td", null, foreign(known.join("; ")))
      ];
    }, "machine");
}
