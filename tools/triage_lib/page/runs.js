// A run: its line in the list, and what it unfolds to.

function summaryOf(outcome, strong, second, when, ...rest) {
  return h("summary", null, outcome, h("span.title", null, strong, second),
    h("span.when", null, h("span", null, when), rest.map(text => h("span", {title: visible(text)}, text))));
}

/** The words of the failure that tell its run from others; a bare number would say nothing without its name. */
const fieldsOf = run =>
  Object.values(run.failure.fields).filter(value => !/^[-\d]*$/.test(value) && !run.command_line?.startsWith(value)).join(", ");

function runItem(run) {
  const asked = run.request?.words ?? (run.command_line === null ? "no command line in the log" : run.command_line);
  const wrong = run.outcome !== "succeeded" && run.failure;
  const details = unfolding({"data-run": run.id, "data-outcome": run.outcome},
    summaryOf(outcomeLabel(run.outcome),
      wrong ? h("strong", null, sentence(clipped(run.failure.title, 200)),
                fieldsOf(run) && [" ", h("code.foreign.quiet", null, clipped(fieldsOf(run), 120))])
            : null,
      h(wrong ? "span.second" : "span", null, sentence(clipped(asked, 300))), [moment(run.time), " · ", lasted(run.seconds)],
      ...(machines.size > 1 ? [run.machine] : [])),
    () => runContent(run));
  details.addEventListener("toggle", () => {
    if (details.open ? state.run !== run.id : state.run === run.id) {
      state.run = details.open ? run.id : "";
      history.replaceState(null, "", address({}));
    }
  });
  return details;
}

/** The command line with the words marked that are wrong. */
function commandLine(run) {
  const parts = [];
  let rest = run.command_line;
  for (let room = 50; room && rest; --room) {
    const places =
      run.request?.wrong.filter(Boolean).map(word => [rest.indexOf(word), word]).filter(([place]) => place >= 0) ?? [];
    if (!places.length) break;
    const [place, word] = places.reduce((a, b) => b[0] < a[0] || (b[0] === a[0] && b[1].length > a[1].length) ? b : a);
    parts.push(rest.slice(0, place), h("mark", null, word));
    rest = rest.slice(place + word.length);
  }
  return h("code.foreign", null, parts, rest);
}

const systemOf = item => foreign([item.windows, item.version && `wsc.dll ${item.version}`].filter(Boolean).join(", "));

function verdict(run) {
  const result = run.result && [code(run.result), " ", run.result_meaning && sentence(run.result_meaning)];
  const remedy = run.result_meaning && data.results[run.result]?.remedy;
  if (!run.failure || run.outcome === "succeeded")
    return h("div.verdict", {"data-outcome": run.outcome},
      h("p", null, run.outcome === "succeeded" ? "It succeeded." : `It ${OUTCOMES[run.outcome] ?? run.outcome}.`),
      terms("advice", [["Result", result]]));
  const crash = run.outcome === "crashed" && dumpsOf(run).filter(dump => dump.cause === "crash").map(crashOf).find(Boolean);
  const fields = Object.entries(run.failure.fields).filter(([, value]) => !run.error?.includes(value));
  return h("div.verdict", {"data-outcome": run.outcome}, terms("advice", [
    ["Meaning", run.failure.meaning && sentence(run.failure.meaning)],
    ["Look at, or do", run.failure.remedy ? sentence(run.failure.remedy) : remedy && sentence(remedy)],
    [
      "In this run",
      fields.length > 0 && fields.map(([name, value]) => [h("span.quiet", null, name.toLowerCase(), " "), code(value), " "])
    ],
    ["The dump says", crash && foreign(crash)],
    ["The log says", run.error && code(run.error)],
    [
      "Because of",
      run.causes.length > 0 &&
        run.causes.map(cause => h("div", null, code(cause.text), cause.code && [" ", code(cause.code)],
                         cause.meaning && [" – ", sentence(cause.meaning)]))
    ],
    ["Result", result],
  ]));
}

function stepsTable(run) {
  const most = run.steps.reduce((longest, step) => Math.max(longest, step.seconds), 0) || 1;
  return [
    h("h4", null, "Where the time went"),
    h("table.steps", null,
      h("thead", null,
        h("tr", null, h("th", {scope: "col"}, "Step"), h("th.right", {scope: "col"}, "Time"),
          h("th.long", {"aria-hidden": "true"}))),
      h("tbody", null, run.steps.map(step => {
        const bar = h("span.bar");
        bar.style.width = `${100 * step.seconds / most}%`;
        return h("tr", null, h("td", null, sentence(step.step)), h("td.right.number", null, lasted(step.seconds)),
          h("td.long", {"aria-hidden": "true"}, bar));
      })))
  ];
}

function gapWords(run, number) {
  const [are, them] = number === 1 ? ["is", "it"] : ["are", "them"];
  return `${count(number, "line")} of the run ${are} left out here for the size of the page; ${run.log} has ${them}.`;
}

/** Its lines, and between them how many are missing there. */
function withGaps(run) {
  const found = [];
  let next = 1;
  for (const line of run.lines) {
    if (line.number > next) found.push({gap: line.number - next});
    found.push(line);
    next = line.number + 1;
  }
  if (run.lines.length && next <= run.line_count) found.push({gap: run.line_count - next + 1});
  return found;
}

function linesTable(run) {
  const body = h("tbody");
  let before = null;
  const more = portions(body, withGaps(run), LINES_AT_ONCE, line => {
    if (line.gap) {
      before = null;
      return h("tr.gap", {tabindex: "-1"}, h("td.note", {colspan: 6}, gapWords(run, line.gap)));
    }
    const text = line.id === null ? null : data.texts[line.id];
    const explained = text && line.id !== before && (text.meaning || text.remedy);
    before = line.id;
    const time = at(line.at);
    return h(`tr${text?.fault || line.level === "error" || line.level === "fatal" ? ".fault" : ""}`, {tabindex: "-1"},
      h("td.number.at", null, Number.isNaN(time) ? "" : clock(time, "all")), h("td.number.thread", null, line.thread),
      h("td.level", null, line.level), h("td.tag.foreign", null, line.tag),
      h("td.text", null, h(`code.foreign${text ? "" : ".elsewhere"}`, null, line.text)), h("td.explained", null, explained && [
        text.meaning && sentence(text.meaning),
        text.remedy && h("div", null, h("b", null, "Look at, or do: "), foreign(text.remedy))
      ]));
  }, "line");
  return [
    h("h4", null, "The log, line by line"),
    run.lines.length ? h("table.lines", null,
                         h("thead", null,
                           h("tr", null,
                             [
                               ["at", "Time"], ["thread", "Thread"], ["level", "Level"], ["tag", "Tag"], ["text", "Line"],
                               ["says", "What it means"]
                             ].map(([name, title]) => h(`th.${name}`, {scope: "col"}, title)))),
                         body)
                     : null,
    more, !run.lines.length && run.left_out > 0 && h("p.note", null, gapWords(run, run.left_out))
  ];
}

function runContent(run) {
  const cut = [
    run.begin_cut && "the log begins in the middle of this run", run.end_cut && "the log ends in the middle of it",
    run.clock_back && "the clock was set back meanwhile"
  ].filter(Boolean);
  return [
    verdict(run),
    terms("facts",
      [
        [
          "Command line",
          run.command_line === null ? h("span.quiet", null, "not in the log") : h("div.command", null, commandLine(run))
        ],
        [
          "Wrong in it",
          run.request?.wrong.length > 0 &&
            run.request.wrong.slice(0, 20).map(word => [h("mark.foreign.mono", null, word || "(an empty word)"), " "])
        ],
        ["Asked for", run.request && sentence(run.request.words)],
        [
          "When",
          `${moment(run.time, "all")}, for ${lasted(run.seconds)}` +
            (run.begin_utc && at(run.begin_utc) !== run.time ? ` (${moment(at(run.begin_utc), "all")} UTC)` : "")
        ],
        ["Where", [foreign(run.machine), ", ", foreign(run.log), `, process ${run.process}`]],
        ["System", systemOf(run)],
        ["Worth knowing", cut.length > 0 && sentence(both(cut))],
        ["Logged, survived", run.faults.length > 0 && run.faults.map(id => h("div", null, foreign(run.fault_texts[id])))],
      ]),
    dumpsOf(run).length > 0 &&
      [
        h("h4", null, dumpsOf(run).length === 1 ? "Its minidump" : "Its minidumps"),
        h("div.dumps-of-run", null, dumpsOf(run).map(dump => dumpItem(dump, true, dumpsOf(run).length === 1)))
      ],
    linesTable(run),
    run.steps.length > 0 && stepsTable(run),
  ];
}
