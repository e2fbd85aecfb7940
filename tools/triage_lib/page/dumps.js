// A minidump: its line in the list, and what it unfolds to.

const CAUSES = {
  crash: "crashed",
  "fatal-error": "failed"
};
const WRITTEN = {
  crash: "written when the process crashed",
  "fatal-error": "written where a fatal error was thrown",
  asked: "written because somebody asked for it"
};
const kindOf = dump => CAUSES[dump.cause] ? outcomeLabel(CAUSES[dump.cause]) : h("span.outcome", null, "asked for");

const whenOf = dump => momentOf(dump.time, [dump.machine]);

function dumpItem(dump, ofRun, open) {
  return unfolding({"data-dump": dump.id, "data-outcome": CAUSES[dump.cause], open},
    summaryOf(kindOf(dump), h("strong.foreign", null, clipped(dumpTitle(dump), 300)),
      h("span.second.foreign.mono", null, dump.path), whenOf(dump), ...(machines.size > 1 ? [dump.machine] : [])),
    () => dumpContent(dump, ofRun));
}

function access(exception) {
  const [how, where] = exception.parameters;
  const word = {0: "reading", 1: "writing", 8: "executing"}[Number(how)];
  return exception.code === "0xc0000005" && word && where ? `, ${word} ${where}` : "";
}

/** What happened, as short as it can be said. */
function crashOf({exception, stack}) {
  const place = stack.find(frame => frame.function);
  return exception && exception.name + access(exception) + (place ? `, in ${place.function}` : "");
}

function stackTable(dump) {
  const innermost = dump.stack.findIndex(frame => frame.ours), named = dump.stack.some(frame => frame.function);
  const titles = named ? ["Function, innermost first", "Source", "Module"] : ["Module and offset, innermost first"];
  const source = frame => frame.file && code(frame.file + (frame.line === null ? "" : `:${frame.line}`));
  const name = frame => [frame.function ? code(frame.function) : h("span.quiet", null, "unknown"),
    frame.inlined && [" ", h("span.badge", null, "inlined")]];
  const row = (frame, index) => h(`tr${frame.ours ? ".ours" : ""}${index === innermost ? ".innermost" : ""}`, null,
    named && [h("td.function", null, name(frame)), h("td", null, source(frame))],
    h("td", null, code((frame.module ?? "no module") + (frame.offset ? `+${frame.offset}` : ""))));
  return h("div.scroll", {tabindex: "0", role: "region", "aria-label": "Stack"},
    h("table.stack", null, h("thead", null, h("tr", null, titles.map(title => h("th", {scope: "col"}, title)))),
      h("tbody", null, dump.stack.map(row))));
}

function dumpContent(dump, ofRun) {
  const exception = dump.exception, run = runs.get(dump.run);
  const at = exception && [code(exception.code), ` ${exception.name}${access(exception)}, at `, code(exception.address)];
  const symbols = image =>
    h("div", null, code(image.module), image.matches ? " matches the symbols" : " matches no symbols at hand");
  return [
    dump.stack_note && h("p.note", null, sentence(dump.stack_note), dump.stack_note.endsWith(".") ? "" : "."),
    dump.stack.length ? stackTable(dump) : h("p.empty", null, "No stack could be read."),
    terms("facts",
      [
        ["Exception", exception ? [at, `, thread ${exception.thread}`] : h("span.quiet", null, "none")],
        ["Parameters", exception?.parameters.length > 0 && code(exception.parameters.join("  "))],
        ["Written", [WRITTEN[dump.cause] ?? dump.cause, dump.writer && [", by ", foreign(dump.writer)], `, ${whenOf(dump)}`]],
        ["File", [code(dump.path), ` of ${dump.machine}, ${count(dump.size, "byte")}, process ${dump.process ?? "unknown"}`]],
        ["Run", run && !ofRun && h("a", {href: address({run: run.id})}, sentence(run.request?.words ?? "its run"))],
        ["Comment", dump.comment && foreign(dump.comment)],
        ["System", systemOf(dump)],
        ["Symbols", dump.symbols.length > 0 && dump.symbols.map(symbols)],
        ["Signature", code(dump.signature)],
      ]),
  ];
}
