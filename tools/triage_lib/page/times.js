// Times. A log has its machine's local time, without a zone; a dump has UTC.

const MONTHS =
  ["January", "February", "March", "April", "May", "June", "July", "August", "September", "October", "November", "December"];
const at = text => text ? Date.parse(text.endsWith("Z") ? text : text + "Z") : NaN;
const two = number => String(number).padStart(2, "0");
const iso = time => new Date(time).toISOString().slice(0, -1);

const day = (time, long) => {
  const d = new Date(time), month = MONTHS[d.getUTCMonth()];
  return `${d.getUTCDate()} ${long ? month : month.slice(0, 3)} ${d.getUTCFullYear()}`;
};
function clock(time, parts = "seconds") {
  const d = new Date(time);
  const minutes = `${two(d.getUTCHours())}:${two(d.getUTCMinutes())}`;
  return parts === "minutes"
    ? minutes
    : `${minutes}:${two(d.getUTCSeconds())}` + (parts === "all" ? "." + String(d.getUTCMilliseconds()).padStart(3, "0") : "");
}
const moment = (time, parts) => Number.isNaN(time) ? "at an unknown time" : `${day(time)}, ${clock(time, parts)}`;

function period(from, to) {
  if (Number.isNaN(from) || Number.isNaN(to)) return "";
  const parts = to - from < 120000 ? "seconds" : "minutes";
  if (clock(from, parts) === clock(to, parts) && to - from < MINUTE) return `${day(from, true)}, ${clock(from)}`;
  if (day(from) === day(to)) return `${day(from, true)}, ${clock(from, parts)} to ${clock(to, parts)}`;
  return `${day(from, true)}, ${clock(from, "minutes")} to ${day(to, true)}, ${clock(to, "minutes")}`;
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
