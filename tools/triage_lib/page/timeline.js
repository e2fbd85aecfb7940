// The runs over time: a sign for each of few, bars for many.

const STEPS = [
  1, 2, 5, 10, 20, 50, 100, 200, 500, ...[1, 2, 5, 10, 15, 30].map(n => n * SECOND),
  ...[1, 2, 5, 10, 15, 30].map(n => n * MINUTE), ...[1, 2, 3, 6, 12].map(n => n * HOUR),
  ...[1, 2, 7, 14, 30, 61, 91, 182, 365, 1826].map(n => n * DAY)
];

function renderTimeline(found) {
  const place = $("timeline");
  const dated = found.filter(run => !Number.isNaN(run.time));
  const caption = $("timeline-caption");
  place.replaceChildren();
  if (!dated.length) {
    fill(caption);
    return;
  }
  const width = Math.max(280, place.clientWidth || 280);
  const first = dated.reduce((least, run) => Math.min(least, run.time), Infinity),
        last = dated.reduce((most, run) => Math.max(most, run.time), -Infinity);
  const slots = Math.floor(width / 15), cell = width / slots, span = Math.max(last - first, 1000);
  const bins = Array.from({length: slots}, () => []);
  for (const run of dated) bins[Math.floor((run.time - first) / span * (slots - 1))].push(run);
  const most = bins.reduce((highest, bin) => Math.max(highest, bin.length), 0);
  const single = most <= 12, top = 18, room = single ? most * cell : 150, bottom = top + room, height = bottom + 26;
  fill(caption,
    `When they began, ${period(first, last)}. ${
      single ? "One sign for each run" : `Up to ${most} runs side by side`}; choose one to look closer.`);

  const picture = svg("svg", {
    viewBox: `0 0 ${width} ${height}`,
    height,
    role: "group",
    "aria-label": `Timeline of ${count(dated.length, "run")}; the arrow keys go from one to the next`
  });
  const step = STEPS.find(size => span / size <= width / 95) ?? STEPS.at(-1);
  let shownDay = "";
  for (let tick = Math.ceil(first / step) * step; tick <= first + span; tick += step) {
    const x = (tick - first) / span * (slots - 1) * cell + cell / 2;
    if (x > width - 40) break;
    const date = day(tick).replace(/ \d+$/, "");
    const label = step >= DAY ? (step >= 182 * DAY ? day(tick).slice(-8) : date)
                              : clock(tick,
                                  step < SECOND     ? "all"
                                    : step < MINUTE ? "seconds"
                                                    : "minutes");
    const anchor = x < 40 ? "start" : "middle";
    picture.append(svg("line", {class: "grid", x1: x, x2: x, y1: top - 8, y2: bottom + 5}),
      svg("text", {x: anchor === "start" ? 0 : x, y: bottom + 20, "text-anchor": anchor}, label));
    if (step < DAY && date !== shownDay && day(first) !== day(last))
      picture.append(svg("text", {x: x + 4, y: top - 6}, shownDay = date));
  }
  picture.append(svg("line", {class: "axis", x1: 0, x2: width, y1: bottom + .5, y2: bottom + .5}));
  bins.forEach((bin, index) => {
    if (!bin.length) return;
    const x = index * cell;
    const counted =
      WORST_FIRST.map(outcome => [outcome, bin.filter(run => run.outcome === outcome).length]).filter(([, number]) => number);
    const words = `${moment(bin[0].time)}: ${both(counted.map(([outcome, number]) => `${number} ${OUTCOMES[outcome]}`))}`;
    const drawn = [];
    let y = bottom;
    for (const [outcome, number] of counted) {
      if (single) {
        for (let n = 0; n < number; ++n, y -= cell)
          drawn.push(svg("g", {"data-outcome": outcome, class: "mark"}, shape(outcome, x + cell / 2, y - cell / 2, cell * .38)));
      } else {
        const tall = Math.max(2.5, number / most * room);
        drawn.push(
          svg("rect", {class: "segment", "data-outcome": outcome, x: x + 1.5, y: y - tall, width: cell - 3, height: tall - .5}));
        y -= tall;
      }
    }
    const choose = () => {
      const times = bin.map(run => run.time).sort((a, b) => a - b);
      if (times[0] === times.at(-1)) goToRun(bin[0].id, true);
      else show({from: iso(times[0]), to: iso(times.at(-1)), run: ""}, true);
    };
    picture.append(svg("g", {class: "bin", role: "button", tabindex: -1, "aria-label": words}, svg("title", {}, words),
      svg("rect", {class: "area", x, y: top - 8, width: cell, height: bottom - top + 8}), drawn));
    const button = picture.lastChild;
    button.addEventListener("click", choose);
    button.addEventListener("keydown", event => {
      const all = [...picture.querySelectorAll(".bin")], here = all.indexOf(button);
      const next = {ArrowRight: all[here + 1], ArrowLeft: all[here - 1], Home: all[0], End: all.at(-1)}[event.key];
      if (event.key === "Enter" || event.key === " ") choose();
      else if (next) {
        button.setAttribute("tabindex", -1);
        next.setAttribute("tabindex", 0);
        next.focus();
      } else return;
      event.preventDefault();
    });
  });
  picture.querySelector(".bin").setAttribute("tabindex", 0);
  if (!single) picture.append(svg("text", {x: 0, y: top - 8}, count(most, "run")));
  place.append(picture);
}
