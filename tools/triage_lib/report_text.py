"""The summary for a terminal. What comes from a file is shown, never sent: no text of a log can move a cursor or turn a line around."""
from __future__ import annotations

import re
import textwrap
from collections.abc import Iterator
from typing import TextIO

from .dump_record import frame_place
from .examine import Record
from .groups import Group, Groups
from .model import DumpRecord, MachineRecord, Outcome, Problem, Run, code_text, moment

MOST_RUNS = 200        # that are shown one by one ...
MOST_CHARACTERS = 4 << 20  # ... and of their requests and errors
MOST_PROBLEMS = 200
MOST_GROUPS = 20
MOST_FRAMES = 8
LONGEST_TEXT = 600     # characters of one text of a file
WIDTH = 118

_MOVING = re.compile("[\0-\x1f\x7f-\xa0\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff\ud800-\udfff]")


def visible(text: str) -> str:
    """A text of a file in which all that would not be seen is written out."""
    shown = _MOVING.sub(lambda found: found[0].encode("unicode_escape", "surrogatepass").decode("ascii"), text)
    return shown if len(shown) <= LONGEST_TEXT else shown[:LONGEST_TEXT] + " ..."


def many(number: int, what: str) -> str:
    return f"{number:,} {what}{'' if number == 1 else 's'}"


def duration(milliseconds: int) -> str:
    seconds = milliseconds / 1000
    if seconds < 120:
        return f"{seconds:.3g} s"
    return f"{seconds / 60:.0f} min" if seconds < 7200 else f"{seconds / 3600:.1f} h"


def _labelled(label: str, text: str) -> Iterator[str]:
    yield from textwrap.wrap(visible(text), WIDTH, initial_indent=f"    {label:<9}", subsequent_indent=" " * 13,
                             break_on_hyphens=False) if text else []


def dump_lines(dump: DumpRecord) -> Iterator[str]:
    yield from _labelled("dump", f"{dump.path}: {dump.title}")
    for frame in [frame for frame in dump.stack if frame.ours][:MOST_FRAMES]:
        yield from _labelled("", "in " + frame_place(frame) + " (inlined)" * frame.inlined)
    yield from _labelled("", dump.stack_note or "")


def run_lines(run: Run, dumps: dict[str, DumpRecord]) -> Iterator[str]:
    result = f" {code_text(run.result)}" if run.result is not None else ""
    cut = " (its beginning is missing)" * run.begin_cut + " (the log ends)" * run.end_cut + " (the clock was set back)" * run.clock_back
    yield f"  {(moment(run.begin) or '?').replace('T', ' ')}  process {run.process}  {visible(run.machine)}"
    yield f"    {run.outcome.value.upper().replace('-', ' ')}{result} after {duration(run.milliseconds)}{cut}"
    if run.command_line is not None:
        yield from _labelled("command", run.command_line)
    if run.request:
        yield from _labelled("asked", run.request.words)
        yield from _labelled("wrong", " ".join(run.request.wrong))
    if run.failure:
        text = f" ({run.causes[0].text})" if run.causes else ""
        yield from _labelled("step", run.failure.title + text)
        yield from _labelled("means", run.failure.meaning)
        yield from _labelled("do", run.failure.remedy)
    for cause in run.causes[1:]:
        yield from _labelled("because", cause.text + (f" ({code_text(cause.code)})" if cause.code is not None else ""))
    for fault in run.faults.values():
        yield from _labelled("also", fault)
    if run.result_meaning and run.outcome is Outcome.FAILED:
        yield from _labelled("result", run.result_meaning)
    yield from _labelled("time", ", ".join(f"{step} {duration(passed)}" for step, passed in run.steps.items()))
    yield from _labelled("Windows", run.windows or "")
    for id in run.dumps:
        yield from dump_lines(dumps[id])


def group_lines(group: Group) -> Iterator[str]:
    counts = ", ".join(many(number, what) for number, what in ((group.runs, "run"), (group.dumps, "dump")) if number)
    span = ""
    if group.first and group.last:
        span = f", {group.first}" + (f" to {group.last}" if group.last != group.first else "")
    yield f"  {visible(group.title)}"
    versions = ", version " + ", ".join(sorted(map(visible, group.versions))) if group.versions else ""
    yield f"    {counts} on {many(len(group.machines), 'machine')}{span}{versions}"
    yield from _labelled("means", group.meaning or "")
    yield from _labelled("do", group.remedy or "")


class Summary:
    """Counts everything, and keeps the first runs that went wrong to show them one by one."""

    def __init__(self, out: TextIO, show_all: bool = False) -> None:
        self._out = out
        self._show_all = show_all
        self._outcomes: dict[Outcome, int] = {outcome: 0 for outcome in Outcome}
        self._machines = 0
        self._lines = 0
        self._dump_count = 0
        self._other_dumps = 0
        self._runs: list[Run] = []
        self._shown: set[str] = set()
        self._left_out = 0
        self._characters = 0
        self._dumps: dict[str, DumpRecord] = {}
        self._problems: list[Problem] = []
        self._problem_count = 0

    def take(self, record: Record) -> None:
        if isinstance(record, Run):
            self._outcomes[record.outcome] += 1
            if record.outcome is Outcome.SUCCEEDED and not record.faults and not self._show_all:
                return
            self._characters += record.characters
            if (len(self._runs) < MOST_RUNS and self._characters < MOST_CHARACTERS) or self._show_all:
                self._runs.append(record)
                self._shown.add(record.id)
            else:
                self._left_out += 1
        elif isinstance(record, DumpRecord):
            self._take_dump(record)
        elif isinstance(record, Problem):
            self._problem_count += 1
            if len(self._problems) < MOST_PROBLEMS:
                self._problems.append(record)
        elif isinstance(record, MachineRecord):
            self._machines += 1
            self._lines += record.lines

    def _take_dump(self, dump: DumpRecord) -> None:
        """A run comes before its dumps; those of runs that are not shown are only counted."""
        self._dump_count += 1
        if dump.run is None:
            self._other_dumps += 1
        if dump.run in self._shown if dump.run else self._other_dumps <= MOST_RUNS:
            self._dumps[dump.id] = dump

    def finish(self, groups: Groups) -> None:
        for line in self._report(groups):
            print(line, file=self._out)

    def _report(self, groups: Groups) -> Iterator[str]:
        runs = sum(self._outcomes.values())
        counts = ", ".join(f"{number:,} {outcome.value.replace('-', ' ')}" for outcome, number in self._outcomes.items() if number)
        machines, lines, dumps = many(self._machines, "machine"), many(self._lines, "line"), many(self._dump_count, "dump")
        yield f"{machines}, {lines}, {many(runs, 'run')}{': ' * bool(counts)}{counts}; {dumps}"
        by_kind: dict[str, list[Group]] = {}
        for group in groups:
            by_kind.setdefault(group.by, []).append(group)
        yield from self._groups("What failed", by_kind.get("failure", []))
        yield from self._groups("The dumps by their signature", by_kind.get("signature", []))
        yield from self._run_chapter()
        yield from self._dump_chapter()
        yield from self._problem_chapter()

    def _groups(self, title: str, groups: list[Group]) -> Iterator[str]:
        if groups:
            yield from ("", f"=== {title}")
        for group in groups[:MOST_GROUPS]:
            yield ""
            yield from group_lines(group)
        if len(groups) > MOST_GROUPS:
            yield from ("", f"  and {len(groups) - MOST_GROUPS} more")

    def _run_chapter(self) -> Iterator[str]:
        if not self._runs:
            return
        yield from ("", "=== All runs" if self._show_all else "=== The runs that did not succeed, or logged a fault")
        for run in sorted(self._runs, key=lambda run: (run.machine, run.begin)):
            yield ""
            yield from run_lines(run, self._dumps)
        if self._left_out:
            yield from ("", f"  and {self._left_out:,} more; --all shows every run, --json and --html have them, too")

    def _dump_chapter(self) -> Iterator[str]:
        rest = [dump for dump in self._dumps.values() if dump.run is None]
        if rest:
            yield from ("", "=== Dumps without a run in the log")
        for dump in rest:
            yield from ("", f"  {dump.time_text or '?'}  process {dump.process}  {visible(dump.machine)}")
            yield from dump_lines(dump)
        if self._other_dumps > len(rest):
            yield from ("", f"  and {self._other_dumps - len(rest):,} more")

    def _problem_chapter(self) -> Iterator[str]:
        if self._problems:
            yield from ("", "=== Not understood", "")
        for problem in self._problems:
            path = f": {problem.path}" if problem.path else ""
            yield "  " + visible(f"{problem.machine}{path}: {problem.reason}")
        if self._problem_count > len(self._problems):
            yield f"  and {self._problem_count - len(self._problems):,} more"
