"""Examines what machines sent: reads dumps and logs, finds what belongs together, and hands everything on piece by piece."""
from __future__ import annotations

import dataclasses
import posixpath
import re
from collections.abc import Callable, Iterable

from . import archive, dump_record, matching, stacks
from .catalogue import Catalogue
from .log import LONGEST_LINE, LineFormat, is_log, log_order
from .model import DumpRecord, MachineRecord, Outcome, Problem, Run
from .runs import RunCutter, read_dumped

MOST_DUMPS = 1000        # of one machine
MOST_HELD = 5000         # runs of one machine that wait for their dumps ...
MOST_ALIKE = 200         # ... and of one process number ...
MOST_CHARACTERS = 8 << 20  # ... and of their requests and errors
MOST_DUMPED = 2000       # lines of one machine that say that a dump was written
MOST_UNKNOWN = 10        # texts that are named as problems

Record = MachineRecord | Run | DumpRecord | Problem

_DUMP = re.compile(r".*\.(?:mdmp|dmp)", re.IGNORECASE)


@dataclasses.dataclass(frozen=True)
class Options:
    line_format: LineFormat
    symbols: stacks.Symbols
    keep_lines: bool = False  # of the runs


def logs_by_folder(files: Iterable[archive.File]) -> dict[str, list[archive.File]]:
    """Each folder's log, its files from the oldest on."""
    folders: dict[str, list[archive.File]] = {}
    for file in files:
        folder, name = posixpath.split(file.path)
        if is_log(name):
            folders.setdefault(folder, []).append(file)
    return {folder: sorted(found, key=lambda file: log_order(posixpath.basename(file.path))) for folder, found in folders.items()}


class _Machine:
    """One folder or zip while it is examined."""

    def __init__(self, machine: archive.Machine, number: int, catalogue: Catalogue, options: Options,
                 take: Callable[[Record], None]) -> None:
        self._machine = machine
        self._number = number
        self._catalogue = catalogue
        self._options = options
        self._take = take
        self._record = MachineRecord(machine.name)
        self._dumps: list[DumpRecord] = []
        self._held: dict[int | None, list[Run]] = {}  # runs that may have a dump, by the process
        self._held_count = 0
        self._held_characters = 0
        self._windows: str | None = None  # of the whole machine, when its dumps agree
        self._version: str | None = None
        self._offset: int | None = None  # minutes by which the machine's clock was ahead of UTC

    def examine(self) -> None:
        self._read_dumps()
        folders = logs_by_folder(self._machine.files)
        self._offset = self._find_offset(file for files in folders.values() for file in files)
        for folder, files in folders.items():
            self._read_log(folder, files)
        if not self._record.logs and not self._record.dumps and not self._machine.problems:
            self._problem(None, "there is neither a log (wsc.log) nor a dump (*.mdmp, *.dmp) in it")
        self._match()
        for runs in self._held.values():
            for run in runs:
                self._take(run)
        for dump in self._dumps:
            self._take(dump)
        for problem in self._machine.problems:
            self._problem(None if problem.path == self._machine.name else problem.path, problem.reason)
        self._take(self._record)

    def _problem(self, path: str | None, reason: str) -> None:
        self._take(Problem(self._machine.name, path, reason))

    def _read_dumps(self) -> None:
        files = [file for file in self._machine.files if _DUMP.fullmatch(file.path)]
        self._record.dumps = len(files)
        if len(files) > MOST_DUMPS:
            self._problem(None, f"{len(files) - MOST_DUMPS} of {len(files)} dumps are passed over; {MOST_DUMPS} are read")
        for number, file in enumerate(files[:MOST_DUMPS], 1):
            try:
                dump, troubles = dump_record.read(file, f"d{self._number}.{number}", self._machine.name, self._options.symbols)
            except dump_record.BadDump as failure:
                self._problem(file.path, str(failure))
                continue
            for trouble in troubles:
                self._problem(file.path, trouble)
            self._dumps.append(dump)
        self._held = {dump.process: [] for dump in self._dumps}
        windows = {dump.windows for dump in self._dumps if dump.windows}
        versions = {dump.version for dump in self._dumps if dump.version}
        self._windows = windows.pop() if len(windows) == 1 else None
        self._version = next(iter(versions)) if len(versions) == 1 else None
        self._record.windows = self._windows or ("; ".join(sorted(windows)) if windows else None)
        self._record.versions = sorted(versions)

    def _find_offset(self, logs: Iterable[archive.File]) -> int | None:
        """Before the runs are cut, so that each can say when it was in UTC."""
        dumped = {dump.process: Run("", dump.process, 0, 0) for dump in self._dumps if dump.process is not None}
        found = 0
        for file in logs if dumped else ():
            with file.open() as stream:
                for process, at in read_dumped(self._catalogue, self._options.line_format, stream):
                    if process in dumped and found < MOST_DUMPED:
                        dumped[process].dumped.append(at)
                        found += 1
        return matching.find_offset(self._dumps, {process: [run] for process, run in dumped.items() if run.dumped})

    def _read_log(self, folder: str, files: list[archive.File]) -> None:
        cutter = RunCutter(self._catalogue, self._options.line_format, self._take_run, self._options.keep_lines)
        for file in files:
            with file.open() as stream:
                cutter.read(file.path, stream)
        cutter.finish()
        self._record.logs += len(files)
        self._record.lines += cutter.lines
        self._record.other_lines += cutter.other_lines
        self._record.unread_lines += cutter.unread_lines
        self._record.clock_steps += cutter.clock_steps
        path = files[-1].path
        if cutter.unread_lines == cutter.lines and cutter.lines:
            self._problem(path, f"none of its {cutter.lines} lines looks like a line of the log; is another --line-format needed?")
        elif cutter.unread_lines:
            self._problem(path, f"{cutter.unread_lines} of {cutter.lines} lines do not look like a line of the log")
        if cutter.cut_lines:
            longer = f"longer than {LONGEST_LINE >> 10} KiB; the rest of them is left out"
            self._problem(path, f"{cutter.cut_lines} of {cutter.lines} lines are {longer}")
        by_number = sorted(cutter.unknown.items(), key=lambda item: -item[1])
        for text, number in by_number[:MOST_UNKNOWN]:
            self._problem(path, f"the catalogue does not know the text of {number} line{'s' * (number > 1)}: {text}")
        if len(by_number) > MOST_UNKNOWN:
            self._problem(path, f"the catalogue does not know {len(by_number) - MOST_UNKNOWN} further texts")

    def _take_run(self, run: Run) -> None:
        self._record.runs += 1
        run.id = f"r{self._number}.{self._record.runs}"
        run.machine = self._machine.name
        run.windows, run.version, run.utc_offset = self._windows, self._version, self._offset
        returned = run.outcome in (Outcome.SUCCEEDED, Outcome.FAILED)
        alike = self._held.get(run.process)
        full = self._held_count >= MOST_HELD or self._held_characters >= MOST_CHARACTERS
        if alike is None or full or (returned and not run.dumped) or len(alike) >= MOST_ALIKE:
            self._take(run)
        else:
            alike.append(run)
            self._held_count += 1
            self._held_characters += run.characters

    def _match(self) -> None:
        offset = matching.find_offset(self._dumps, self._held) if self._offset is None else self._offset
        self._record.utc_offset = offset
        if offset is None:
            return
        for runs in self._held.values():
            for run in runs:
                run.utc_offset = offset
        for dump, run in matching.match(self._dumps, self._held, offset):
            dump.run = run.id
            run.dumps.append(dump.id)
            run.windows = dump.windows or run.windows
            run.version = dump.version or run.version
            if run.outcome is Outcome.CRASHED and dump.cause == "crash":
                dump_record.name_crash(run, dump)


def examine(paths: Iterable[str], catalogue: Catalogue, options: Options, take: Callable[[Record], None],
            progress: Callable[[int, str], None]) -> None:
    """Hands every record to `take`, a machine's own one as its last."""
    for number, machine in enumerate(archive.open_inputs(paths), 1):
        progress(number - 1, machine.name)
        _Machine(machine, number, catalogue, options, take).examine()
    progress(-1, "")
