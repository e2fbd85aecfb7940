// The head of the page and what goes wrong.

function answer() {
  const {runs, wrong} = total;
  if (!runs) return "No run of wsc.dll was found in what was read.";
  if (runs === 1) return wrong ? "The one run went wrong." : "The one run succeeded.";
  if (!wrong) return `All ${count(runs, "run")} succeeded.`;
  return `${wrong === runs ? "All" : wrong.toLocaleString("en") + " of"} ${count(runs, "run")} went wrong.`;
}

/** How many runs ended how: of all runs, also of those that the page does not have. */
function outcomeCounts() {
  const counted = new Map(Object.keys(OUTCOMES).map(outcome => [outcome, 0]));
  const add = (outcome, number) => counted.set(outcome, (counted.get(outcome) ?? 0) + number);
  if (data.left_out.runs) {
    for (const group of failures) add(group.outcome ?? "failed", group.runs);
    add("succeeded", total.runs - total.wrong);
  } else
    for (const run of data.runs) add(run.outcome, 1);
  return [...counted].filter(([, number]) => number > 0);
}

function renderHead() {
  const most = failures.filter(group => group.runs === failures[0].runs && group.machines === failures[0].machines);
  const named = group =>
    h("a", {href: address({...NOTHING, group: `failure:${group.key}`}), "data-then": "list"}, foreign(group.title));
  const listed = most.slice(0, 3).flatMap((group, index) => [index ? "; " : "", named(group)]);
  const share = failures.length &&
    `${count(failures[0].runs, "run")}${machines.size > 1 ? ` on ${count(failures[0].machines, "machine")}` : ""}`;
  fill($("answer"), answer());
  fill($("most"), most.length > 0 && [
    failures.length > 1 ? "Most often: " : "It was: ", listed, most.length > 3 && `; and ${most.length - 3} more as often`,
    total.wrong > 1 && [" ", h("span.quiet", null, `(${share}${most.length > 1 ? " each" : ""})`)]
  ]);
  const one = machines.size === 1;
  fill($("read"), `Read: ${both([count(total.runs, "run"), count(total.dumps, "minidump")])} of `,
    one ? "one machine, " : count(machines.size, "machine"), one && foreign(data.machines[0].name),
    times.length > 0 && `, from ${period(earliest, latest)}`,
    data.problems.length > 0 && ` · ${count(data.problems.length, "thing")} not understood`, ".");
  const counted = outcomeCounts();
  fill($("share"), counted.map(([outcome, number]) => {
    const part = h("span", {"data-outcome": outcome, title: `${number} ${OUTCOMES[outcome]}`});
    part.style.flexGrow = number;
    part.style.background = "var(--tone)";
    return part;
  }));
  $("share").setAttribute("role", "img");
  $("share").setAttribute("aria-label", both(counted.map(([outcome, number]) => `${number} ${OUTCOMES[outcome]}`)));
  const numbers = {
    groups: failures.length,
    runs: data.runs.length,
    dumps: data.dumps.length,
    problems: data.problems.length,
    machines: machines.size
  };
  for (const link of $("sections").querySelectorAll("a")) {
    link.append(" ", h("span.number", null, numbers[link.dataset.go].toLocaleString("en")));
    if (!numbers[link.dataset.go] && link.dataset.go !== "runs") link.hidden = $(link.dataset.go).hidden = true;
  }
  document.title = total.runs ? `Triage: ${total.wrong} of ${count(total.runs, "run")} went wrong` : "Triage";
  const leftOut =
    [["runs", "run"], ["dumps", "minidump"], ["problems", "problem"]].filter(([key]) => data.left_out[key]).map(([key,
      one]) => count(data.left_out[key], one));
  fill($("made"),
    `Made ${moment(at(data.made), "minutes")} UTC by tools/triage. Times are those of each machine's own clock, as in its log; `,
    "a time in UTC says so. Nothing is loaded from anywhere, and nothing is sent.",
    leftOut.length > 0 && ` Left out for the size of the page: ${both(leftOut)}; the groups and the machines count them.`);
}

function spanOf(group) {
  const [first, last] = [momentOf(group.first, group.machine_names), momentOf(group.last, group.machine_names)];
  if (first === last) return first;
  const [date, time] = last.split(", ");
  return `${first} to ${first.startsWith(date) ? time : last}`;
}

const factsOf = (group, ...links) => h("div.facts-line", null,
  h("span", null, count(group.machines, "machine"),
    machines.size > 1 && group.machine_names.length > 0 &&
      [": ", foreign(clipped(group.machine_names.slice(0, 3).join(", "), 80)), group.machines > 3 && " …"]),
  group.by === "failure" && group.dumps > 0 && h("span", null, count(group.dumps, "minidump")),
  group.first && h("span", null, spanOf(group)),
  group.versions.length > 0 &&
    h("span", null, group.versions.length > 1 ? "versions " : "version ", foreign(group.versions.join(", "))),
  links);

/**
 * What the catalogue says of a group names no file and no process. Where all of its runs say the same, they say it better; else
 * the words that tell them apart follow.
 */
function adviceOf(group) {
  const found = data.runs.filter(run => groupOfRun(run) === `failure:${group.key}`).map(run => run.failure);
  const said = key => new Set(found.map(failure => failure[key]));
  const same = key => said(key).size === 1 ? [...said(key)][0] : group[key];
  const words = new Map();
  for (const [name, value] of found.flatMap(failure => Object.entries(failure.fields)))
    words.set(name, (words.get(name) ?? new Set()).add(value));
  const listed = [...words].filter(([, values]) => values.size > 1).map(([name, values]) => {
    const first = [...values].slice(0, WORDS_SHOWN), more = values.size - WORDS_SHOWN;
    const rest = more > 0 && h("span.quiet", null, ` and ${more} more`);
    if (first.every(value => value.length < 20)) return h("div", null, `${name}: `, code(first.join(", ")), rest);
    return [first.map(value => h("div", null, code(clipped(value, 200)))), rest];
  });
  return terms("advice", [
    ["Meaning", same("meaning") && sentence(same("meaning"))],
    ["Look at, or do", same("remedy") && sentence(same("remedy"))],
    ["In these runs", listed.length > 0 && listed],
  ]);
}

function groupItem(group) {
  const index = failures.indexOf(group), one = group.runs === 1;
  const kept = data.runs.filter(run => groupOfRun(run) === `failure:${group.key}`).length;
  const details = h("details", {open: index < GROUPS_OPEN},
    h("summary", null, h("span.count", null, group.runs.toLocaleString("en"), " ", h("small", null, one ? "run" : "runs")),
      h("span.title", null, h("strong", null, sentence(group.title ?? group.key)), outcomeLabel(group.outcome))),
    h("div.what", null, adviceOf(group),
      factsOf(group,
        h("a", {
          href: address({...NOTHING, group: `${group.by}:${group.key}`, run: one ? group.examples[0] ?? "" : ""}),
          "data-then": "list"
        },
          one                   ? "Show the run"
            : kept < group.runs ? `Show ${kept} of them`
                                : `Show these ${count(kept, "run")}`))));
  return h("li", {"data-outcome": group.outcome}, details);
}

function renderGroups() {
  fill($("groups-lead"), "By the step that failed, the most machines and runs first.");
  $("groups").append(portions($("group-list"), failures, GROUPS_AT_ONCE, groupItem, "group"));
  if (places.length) {
    const rows = h("tbody");
    const more = portions(rows, places, ROWS_AT_ONCE,
      group => h("tr", {tabindex: "-1"}, h("td.number", null, group.dumps), h("td", null, outcomeLabel(group.outcome), " "),
        h("td", null,
          h("a", {href: address({...NOTHING, group: `${group.by}:${group.key}`}), "data-then": "dumps"},
            foreign(group.title ?? group.key)),
          factsOf(group))),
      "place");
    fill($("place-list"),
      h("div.table", null,
        h("table", null,
          h("thead", null, h("tr", null, ["Dumps", "Outcome", "Exception and place"].map(name => h("th", {scope: "col"}, name)))),
          rows),
        more));
  }
}
