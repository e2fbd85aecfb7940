"""Cuts a log into runs of the module while it is read. Of a run that is over nothing stays here."""
from __future__ import annotations

import dataclasses
import re
from collections.abc import Callable, Iterator
from typing import BinaryIO

from . import request
from .catalogue import Catalogue, Entry, Match, filled, plain
from .log import LONGEST_LINE, LineFormat, raw_lines
from .model import Cause, Failure, LogLine, Outcome, Run

MOST_OPEN_RUNS = 1000        # of one log; the oldest is then taken for over
MOST_ENDED_RUNS = 64         # that may still get a line behind their end
MOST_KEPT = 16 << 20         # characters of lines of runs that are not over
MOST_CHARACTERS = 8 << 20    # of requests and errors of runs that are not over; the oldest is then taken for over
KEPT_AT_BEGIN, KEPT_AT_END = 100, 200   # lines of a run
MOST_NESTED = 16             # failures that one is made of; the log library prints no more
MOST_DUMPED = 16             # dumps of one run
LONGEST_FIELD = 1000         # characters of a word in a fault that a run survived
MOST_UNKNOWN = 100           # texts that the catalogue lacks
CLOCK_JITTER = 1000          # ms; lines of two processes may stand in the other order

THROWN = 0xE06D7363
GENERAL_FAILURE = 31  # the result of a failure that is none of the module's own
_CODE = re.compile(r"(.*) \(code 0x([0-9a-f]{8})\)", re.DOTALL)


@dataclasses.dataclass(slots=True)
class _OpenRun:
    """A run while its lines come."""

    run: Run
    step: str = "start"
    begun: set[str] = dataclasses.field(default_factory=set)  # the texts with which it began
    started: bool = False
    ended: bool = False
    crashed: bool = False
    crash_step: str = ""
    crash_code: int | None = None
    last_step: Entry | None = None   # the line since which the step lasts
    tail: list[LogLine] = dataclasses.field(default_factory=list)
    kept: int = 0                    # characters

    def keep(self, line: LogLine) -> int:
        """Keeps a line for the report; gives how many characters more are kept now."""
        before = self.kept
        self.kept += len(line.text)
        if len(self.run.lines) < KEPT_AT_BEGIN:
            self.run.lines.append(line)
            return self.kept - before
        self.tail.append(line)
        if len(self.tail) > 2 * KEPT_AT_END:
            self.kept -= sum(len(old.text) for old in self.tail[:KEPT_AT_END])
            del self.tail[:KEPT_AT_END]
        return self.kept - before

    def take_time(self, at: int, entry: Entry | None) -> None:
        run = self.run
        passed = at - run.end
        if passed < 0:
            run.clock_back |= passed < -CLOCK_JITTER
            passed = 0
        run.milliseconds += passed
        step = entry.step_before if entry and entry.step_before else self.step
        run.steps[step] = run.steps.get(step, 0) + passed
        run.end = at
        if entry and entry.step:
            self.step = entry.step
            self.last_step = entry

    def crash(self) -> None:
        if not self.crashed:
            self.crashed = True
            self.crash_step = self.step


def read_causes(catalogue: Catalogue, text: str) -> list[Cause]:
    """"TEXT (code 0x...) <- TEXT (code 0x...) <- ...", the outermost first. A text that is known as a whole may have an arrow in it."""
    whole = _cause(catalogue, text)
    if " <- " not in text or whole.id:
        return [whole]
    return [_cause(catalogue, part) for part in text.split(" <- ", MOST_NESTED)]


def _cause(catalogue: Catalogue, text: str) -> Cause:
    coded = _CODE.fullmatch(text)
    said = coded[1] if coded else text
    match = catalogue.error(said)
    return Cause(said, int(coded[2], 16) if coded else None, match.entry.id if match else None,
                 filled(match.entry.meaning, match.fields) if match else None)


def _failure_of(catalogue: Catalogue, cause: Cause) -> Failure:
    match = catalogue.error(cause.text)
    if match is None:
        return Failure("unknown", "a failure that the catalogue does not know", "its text is the log's", "send the log to the makers")
    entry, fields = match.entry, match.fields
    return Failure(entry.id, entry.name, filled(entry.meaning, fields), filled(entry.remedy, fields), fields)


def _stop_of(open_run: _OpenRun) -> Failure:
    """What a run without an end was at."""
    entry = open_run.last_step
    if entry is None or not entry.stuck:
        return Failure("no end", "the run has no end", "the process was ended from outside, or the log was taken while it ran",
                       "when it happens again: what ends the process, or at what it hangs")
    meaning, remedy = map(plain, entry.stuck)
    return Failure(entry.id, f"stopped at the line “{entry.shown}”", meaning, remedy)


def _crash_of(open_run: _OpenRun) -> Failure:
    step, last = open_run.crash_step, open_run.last_step
    meaning, remedy = f"the process crashed in the step “{step}”", "its dump: the innermost functions are the place"
    if last and last.role == "crash" and last.stuck and not open_run.run.dumped:
        said, remedy = map(plain, last.stuck)
        meaning = f"{meaning}; {said}"
    return Failure(f"crash in the step {step}", f"the process crashed in the step: {step}", meaning, remedy)


# --- all runs of a log ---------------------------------------------------------------------------------------------------------


def read_dumped(catalogue: Catalogue, line_format: LineFormat, stream: BinaryIO) -> Iterator[tuple[int, int]]:
    """(process, ms) of each line that says that a dump was written, and of nothing else: much faster than to cut the log."""
    texts = [entry.text.split("%")[0].encode() for entry in catalogue.entries if entry.role == "dumped"]
    for raw, _ in raw_lines(stream):
        if any(text in raw for text in texts) and (read := line_format.read(raw.decode("utf-8", "backslashreplace").rstrip("\r"))):
            yield read[1], read[0]


class RunCutter:
    """Takes the lines of one log, its files one after the other, and hands each run to `finished` when it is over."""

    def __init__(self, catalogue: Catalogue, line_format: LineFormat, finished: Callable[[Run], None], keep_lines: bool) -> None:
        self.lines = 0
        self.other_lines = 0
        self.unread_lines = 0
        self.cut_lines = 0
        self.clock_steps = 0
        self.unknown: dict[str, int] = {}  # texts with our tags that the catalogue lacks, without their numbers
        self._catalogue = catalogue
        self._tags = catalogue.tags()
        self._format = line_format
        self._finished = finished
        self._keep_lines = keep_lines
        self._open: dict[int, _OpenRun] = {}   # by the process
        self._ended: dict[int, _OpenRun] = {}
        self._kept = 0
        self._characters = 0
        self._last = 0
        self._file = ""

    def read(self, path: str, stream: BinaryIO) -> None:
        self._file = path
        first = True
        for raw, whole in raw_lines(stream):
            self.cut_lines += not whole and len(raw) == LONGEST_LINE
            text = raw.decode("utf-8", "backslashreplace").rstrip("\r")
            if first:
                text = text.removeprefix("\ufeff")
                first = False
            if text:
                self._take(text, whole)

    def finish(self) -> None:
        """The log is over, and with it every run."""
        for open_run in self._ended.values():
            self._close(open_run)
        for open_run in self._open.values():
            open_run.run.end_cut = True
            self._close(open_run)
        self._ended, self._open = {}, {}

    def _take(self, line: str, whole: bool) -> None:
        self.lines += 1
        read = self._format.read(line)
        if read is None:
            self.unread_lines += 1
            return
        at, process, thread, level, tag, text = read
        if at < self._last - CLOCK_JITTER:
            self.clock_steps += 1
        self._last = at
        if tag not in self._tags:
            self._take_other(at, process, thread, level, tag, text)
            return
        match = self._catalogue.line(tag, text)
        if match is None:
            if not whole:
                self.unread_lines += 1
                return
            self._note_unknown(text)
        open_run = self._run_of(process, match.entry if match else None, at)
        self._keep(open_run, at, thread, level, tag, text, match)
        self._add(open_run, at, match)

    def _take_other(self, at: int, process: int, thread: int, level: str, tag: str, text: str) -> None:
        """A line of another component; it stands beside those of a run of the same process."""
        open_run = self._open.get(process)
        if open_run is None:
            self.other_lines += 1
        else:
            self._keep(open_run, at, thread, level, tag, text, None)
            self._add(open_run, at, None)

    def _note_unknown(self, text: str) -> None:
        name = re.sub(r"\d+", "N", text[:200])
        if name in self.unknown or len(self.unknown) < MOST_UNKNOWN:
            self.unknown[name] = self.unknown.get(name, 0) + 1

    def _run_of(self, process: int, entry: Entry | None, at: int) -> _OpenRun:
        """The run that a line belongs to; it may be the first of a new one."""
        role = entry.role if entry else ""
        open_run = self._open.get(process)
        if open_run is None:
            ended = self._ended.get(process)
            if ended is not None and role not in ("begin", "started", "again"):
                return ended
            return self._begin(process, at, begin_cut=role not in ("begin", "started", "again"))
        repeats = entry is not None and role == "begin" and (open_run.started or entry.text in open_run.begun)
        if role == "again":
            open_run.ended = True  # the call before has returned
        elif not repeats and not (role == "started" and open_run.started):
            return open_run
        del self._open[process]
        self._close(open_run)
        return self._begin(process, at, begin_cut=False)

    def _begin(self, process: int, at: int, begin_cut: bool) -> _OpenRun:
        if ended := self._ended.pop(process, None):
            self._close(ended)
        if len(self._open) >= MOST_OPEN_RUNS or (self._open and self._characters >= MOST_CHARACTERS):
            self._close(self._open.pop(next(iter(self._open))))
        open_run = _OpenRun(Run(self._file, process, at, at, begin_cut=begin_cut))
        self._open[process] = open_run
        return open_run

    def _keep(self, open_run: _OpenRun, at: int, thread: int, level: str, tag: str, text: str, match: Match | None) -> None:
        if self._keep_lines and self._kept < MOST_KEPT:
            self._kept += open_run.keep(LogLine(at, thread, level, tag, text, match.entry.id if match else None,
                                                 open_run.run.line_count + 1))

    def _add(self, open_run: _OpenRun, at: int, match: Match | None) -> None:
        run = open_run.run
        run.line_count += 1
        entry = match.entry if match else None
        step_before = open_run.step
        if match and entry and entry.role == "crash":
            open_run.crash()  # before the step changes
        open_run.take_time(at, entry)
        if not match or not entry:
            return
        if entry.fault and entry.role != "crash" and not (entry.kind == "context" and entry.text == "run"):
            self._note_fault(run, match)
        if entry.kind == "context":
            if entry.text == "run" and not run.causes:
                run.causes = read_causes(self._catalogue, match.values[0])
                self._characters += sum(len(cause.text) for cause in run.causes)
        elif entry.role == "started":
            open_run.started = True
            run.command_line = match.values[0]
            self._characters += len(run.command_line)
        elif entry.role == "begin":
            open_run.begun.add(entry.text)
        elif entry.role == "dumped":
            if len(run.dumped) < MOST_DUMPED:
                run.dumped.append(at)
            code = int(match.values[0][-8:], 16)
            if open_run.crashed or code != THROWN:
                if not open_run.crashed:
                    open_run.step = step_before
                    open_run.crash()
                open_run.crash_code = code if open_run.crash_code is None else open_run.crash_code
        elif entry.role == "no-crash":
            open_run.crashed = False
        elif entry.role == "end" and self._open.get(run.process) is open_run:
            open_run.ended = True
            del self._open[run.process]
            self._ended[run.process] = open_run
            if len(self._ended) > MOST_ENDED_RUNS:
                self._close(self._ended.pop(next(iter(self._ended))))

    def _note_fault(self, run: Run, match: Match) -> None:
        if match.entry.kind == "context":
            match = next((known for cause in read_causes(self._catalogue, match.values[0])
                          if (known := self._catalogue.error(cause.text))), match)
        if match.entry.id not in run.faults:
            fields = {name: value[:LONGEST_FIELD] for name, value in match.fields.items()}
            run.faults[match.entry.id] = f"{filled(match.entry.shown, fields)}: {filled(match.entry.meaning, fields)}"

    def _close(self, open_run: _OpenRun) -> None:
        run = open_run.run
        self._kept -= open_run.kept
        self._characters -= run.characters
        run.lines += open_run.tail[-KEPT_AT_END:]
        run.left_out = run.line_count - len(run.lines) if self._keep_lines else 0
        run.steps = {step: passed for step, passed in run.steps.items() if passed}
        if run.command_line is not None:
            run.request = request.describe(run.command_line)
        if open_run.crashed:
            run.outcome, run.result, run.failure = Outcome.CRASHED, open_run.crash_code, _crash_of(open_run)
        elif run.causes:
            outermost = run.causes[0]
            run.outcome = Outcome.FAILED
            run.result = GENERAL_FAILURE if outermost.code is None else outermost.code
            run.failure = _failure_of(self._catalogue, outermost)
        elif open_run.ended:
            run.outcome, run.result = Outcome.SUCCEEDED, 0
        else:
            run.failure = _stop_of(open_run)
        if run.outcome is not Outcome.DID_NOT_RETURN:
            run.end_cut = False
        known = self._catalogue.error(run.causes[0].text) if run.outcome is Outcome.FAILED else None
        if run.result is not None and (known is None or known.entry.own_code) and (result := self._catalogue.result(run.result)):
            run.result_meaning = plain(result.meaning)
        self._finished(run)
