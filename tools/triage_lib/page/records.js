// The data, ready to be asked.

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
const earliest = times.reduce((least, time) => Math.min(least, time), Infinity),
      latest = times.reduce((most, time) => Math.max(most, time), -Infinity);

function productsOf(run) {
  const {mode, products} = run.request ?? {};
  const named = PRODUCT_OF_MODE[mode] ? [PRODUCT_OF_MODE[mode]] : products ?? [];
  return named.length ? named : ["none"];
}

const groupOfRun = run => run.outcome === "succeeded" || !run.failure ? null
  : groups.has("failure:" + run.failure.id)                           ? "failure:" + run.failure.id
                                                                      : "failure:others";
const groupOfDump = dump => groups.has("signature:" + dump.signature) ? "signature:" + dump.signature : "signature:others";
const dumpTitle = dump => groups.get("signature:" + dump.signature)?.title ??
  (dump.exception?.name ?? "a dump that was asked for") + (dump.module ? ` in ${dump.module}` : "");
const dumpsOf = run => run.dumps.map(id => dumps.get(id)).filter(Boolean);

const wordsOf = dump => [dump.path, dump.machine, dump.process, dumpTitle(dump), dump.exception?.code, dump.exception?.name,
  dump.comment, dump.writer, dump.windows, dump.version, dump.signature,
  ...dump.stack.flatMap(frame => [frame.module, frame.offset, frame.function, frame.file && `${frame.file}:${frame.line}`])];
const searched = new WeakMap();
function haystack(item, words) {
  let text = searched.get(item);
  if (text === undefined)
    searched.set(item, text = words().filter(word => word !== null && word !== undefined).join("\n").toLowerCase());
  return text;
}
const runHaystack = run => haystack(run,
  () => [run.command_line, run.request?.words, run.error, run.failure?.title, run.failure?.meaning, run.result,
    run.result_meaning, run.process, run.machine, run.log, run.begin, run.windows, run.version,
    ...run.causes.flatMap(cause => [cause.text, cause.code, cause.meaning]), ...run.lines.map(line => line.text),
    ...dumpsOf(run).flatMap(wordsOf)]);
const dumpHaystack = dump => haystack(dump, () => wordsOf(dump));
