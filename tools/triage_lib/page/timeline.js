// The runs over time: a sign for each of few, bars for many.

const STEPS = [
  1, 2, 5, 10, 20, 50, 100, 200, 500, ...[1, 2, 5, 10, 15, 30].map(n => n * SECOND),
  ...[1, 2, 5, 10, 15, 30].map(n => n * MINUTE), ...[1, 2, 3, 6, 12].map(n => n * HOUR),
  ...[1, 2, 7, 14, 30, 61, 91, 182, 365, 1826, 3652, 18262, 91310].map(n => n * DAY)
];

/** Where things are in a picture of this width, for these runs. */
function scaleOf(dated, width) {
  const first = dated.reduce((least, run) => Math.min(least, run.time), Infinity);
  const last = dated.reduce((most, run) => Math.max(most, run.time), -Infinity);
  const slots = Math.floor(width / 15), cell = width / slots, span = Math.max(last - first, SECOND);
  const bins = Array.from({length: slots}, () => []);
  for (const run of dated) bins[Math.floor((run.time - first) / span * (slots - 1))].push(run);
  const most = bins.reduce((highest, bin) => Math.max(highest, bin.length), 0);
  const single = most <= 12, top = 18, room = single ? most * cell : 150;
  return {first, last, span, slots, cell, bins, most, single, top, room, width, bottom: top + room, height: top + room + 26};
}

function axisOf({first, last, span, slots, cell, top, width, bottom}) {
  const drawn = [svg("line", {class: "axis", x1: 0, x2: width, y1: bottom + .5, y2: bottom + .5})];
  const step = STEPS.find(size => span / size <= width / 115) ?? STEPS.at(-1);
  const parts = step < SECOND ? "all" : step < MINUTE ? "seconds" : "minutes";
  let shownDay = "";
  for (let tick = Math.ceil(first / step) * step; tick <= first + span; tick += step) {
    const x = (tick - first) / span * (slots - 1) * cell + cell / 2;
    if (x > width - 40) break;
    const date = day(tick).replace(/ \d+$/, ""), year = day(tick).slice(-8);
    const label = step < DAY ? clock(tick, parts) : step < 182 * DAY ? date : year;
    const place = x < 40 ? {x: 0, "text-anchor": "start"} : {x, "text-anchor": "middle"};
    drawn.push(svg("line", {class: "grid", x1: x, x2: x, y1: top - 8, y2: bottom + 5}));
    drawn.push(svg("text", {y: bottom + 20, ...place}, label));
    if (step < DAY && date !== shownDay && day(first) !== day(last))
      drawn.push(svg("text", {x: x + 4, y: top - 6}, shownDay = date));
  }
  return drawn;
}

/** The runs of one bin, the worst at the bottom: signs, or a bar whose parts differ by more than their colour. */
function columnOf(counted, x, {cell, most, single, room, bottom}) {
  const drawn = [];
  let y = bottom;
  for (const [outcome, number] of counted) {
    if (single) {
      for (let n = 0; n < number; ++n, y -= cell)
        drawn.push(svg("g", {"data-outcome": outcome, class: "mark"}, shape(outcome, x + cell / 2, y - cell / 2, cell * .38)));
    } else {
      const tall = Math.max(2.5, number / most * room);
      const place = {x: x + 1.5, y: y - tall, width: cell - 3, height: tall - .5};
      drawn.push(svg("rect", {class: "segment", "data-outcome": outcome, ...place}));
      if (outcome === "failed") drawn.push(svg("rect", {fill: "url(#hatched)", ...place}));
      y -= tall;
    }
  }
  return drawn;
}

const hatched = () =>
  svg("pattern", {id: "hatched", width: 5, height: 5, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)"},
    svg("line", {class: "cut", x1: 0, x2: 0, y1: 0, y2: 5}));

function binOf(bin, x, scale) {
  const counted =
    WORST_FIRST.map(outcome => [outcome, bin.filter(run => run.outcome === outcome).length]).filter(([, number]) => number);
  const words = `${moment(bin[0].time)}: ${both(counted.map(([outcome, number]) => `${number} ${OUTCOMES[outcome]}`))}`;
  const area = svg("rect", {class: "area", x, y: scale.top - 8, width: scale.cell, height: scale.room + 8});
  const button = svg("g", {class: "bin", role: "button", tabindex: -1, "aria-label": words}, svg("title", {}, words), area,
    columnOf(counted, x, scale));
  const choose = () => {
    const times = bin.map(run => run.time).sort((a, b) => a - b);
    if (times[0] === times.at(-1)) goToRun(bin[0].id, true);
    else show({from: iso(times[0]), to: iso(times.at(-1)), run: ""}, true);
  };
  button.addEventListener("click", choose);
  button.addEventListener("keydown", event => {
    const all = [...button.parentElement.querySelectorAll(".bin")], here = all.indexOf(button);
    const next = {ArrowRight: all[here + 1], ArrowLeft: all[here - 1], Home: all[0], End: all.at(-1)}[event.key];
    if (event.key === "Enter" || event.key === " ") choose();
    else if (next) {
      button.setAttribute("tabindex", -1);
      next.setAttribute("tabindex", 0);
      next.focus();
    } else return;
    event.preventDefault();
  });
  return button;
}

function renderTimeline(found) {
  const dated = found.filter(run => !Number.isNaN(run.time));
  if (!dated.length) {
    fill($("timeline-caption"));
    fill($("timeline"));
    return;
  }
  const scale = scaleOf(dated, Math.max(280, $("timeline").clientWidth));
  const {first, last, bins, cell, most, single, top, width, height} = scale;
  const what = single ? "One sign for each run" : `Up to ${most} runs side by side`;
  fill($("timeline-caption"), `When they began, ${period(first, last)}. ${what}; choose one to look closer.`);
  const label = `Timeline of ${count(dated.length, "run")}; the arrow keys go from one to the next`;
  const picture = svg("svg", {viewBox: `0 0 ${width} ${height}`, height, role: "group", "aria-label": label},
    !single && [hatched(), svg("text", {x: 0, y: top - 8}, count(most, "run"))], axisOf(scale),
    bins.map((bin, index) => bin.length > 0 && binOf(bin, index * cell, scale)));
  picture.querySelector(".bin").setAttribute("tabindex", 0);
  fill($("timeline"), picture);
}
