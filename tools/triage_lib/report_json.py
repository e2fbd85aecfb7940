"""The records as JSON; docs/triage.md describes every field."""
from __future__ import annotations

import collections
import datetime
import json
from collections.abc import Iterable
from typing import Any, TextIO

from .catalogue import Catalogue, plain
from .examine import Record
from .groups import Group, Groups
from .model import DumpRecord, LogLine, MachineRecord, Outcome, Problem, Run, code_text, moment

Json = dict[str, Any]

MOST_RUNS = 1500           # of the page: as many that did not succeed, and as many that did, the latest
MOST_DUMPS = 3000
MOST_PROBLEMS = 3000
MOST_CHARACTERS = 20 << 20  # of the texts of the runs in the page


def _hex(number: int | None) -> str | None:
    return None if number is None else f"0x{number:x}"


def machine_json(machine: MachineRecord) -> Json:
    return {
        "name": machine.name, "logs": machine.logs, "dumps": machine.dumps, "runs": machine.runs, "lines": machine.lines,
        "other_lines": machine.other_lines, "unread_lines": machine.unread_lines, "utc_offset": machine.utc_offset,
        "clock_steps": machine.clock_steps, "windows": machine.windows, "versions": machine.versions,
    }


def _request_json(run: Run) -> Json | None:
    request = run.request
    return None if request is None else {
        "mode": request.mode, "action": request.action, "products": list(request.products), "state": request.state,
        "signatures": request.signatures, "words": request.words, "wrong": list(request.wrong),
    }


def _failure_json(run: Run) -> Json | None:
    failure = run.failure
    return None if failure is None else {
        "id": failure.id, "title": failure.title, "meaning": failure.meaning, "remedy": failure.remedy, "fields": failure.fields,
    }


def run_json(run: Run) -> Json:
    return {
        "id": run.id, "machine": run.machine, "log": run.log, "process": run.process, "begin": moment(run.begin), "end": moment(run.end),
        "begin_utc": run.begin_utc, "seconds": run.milliseconds / 1000, "begin_cut": run.begin_cut, "end_cut": run.end_cut,
        "clock_back": run.clock_back, "command_line": run.command_line, "request": _request_json(run), "outcome": run.outcome.value,
        "result": None if run.result is None else code_text(run.result), "result_meaning": run.result_meaning,
        "error": run.causes[0].text if run.causes else None, "failure": _failure_json(run),
        "causes": [{"text": cause.text, "code": None if cause.code is None else code_text(cause.code), "id": cause.id,
                    "meaning": cause.meaning} for cause in run.causes[1:]],
        "steps": [{"step": step, "seconds": passed / 1000} for step, passed in run.steps.items()],
        "dumps": run.dumps, "windows": run.windows, "version": run.version,
        "faults": list(run.faults), "fault_texts": run.faults, "line_count": run.line_count,
    }


def dump_json(dump: DumpRecord) -> Json:
    exception = dump.exception
    return {
        "id": dump.id, "machine": dump.machine, "path": dump.path, "size": dump.size, "run": dump.run, "process": dump.process,
        "time": dump.time_text,
        "exception": None if exception is None else {
            "code": code_text(exception.code), "name": exception.name, "address": _hex(exception.address), "thread": exception.thread,
            "parameters": [_hex(parameter) for parameter in exception.parameters]},
        "module": dump.module, "offset": _hex(dump.offset),
        "stack": [{"module": frame.module, "offset": _hex(frame.offset), "function": frame.function, "file": frame.file,
                   "line": frame.line, "inlined": frame.inlined, "ours": frame.ours} for frame in dump.stack],
        "stack_note": dump.stack_note,
        "symbols": [{"module": module, "matches": matches} for module, matches in dump.symbols.items()],
        "cause": dump.cause, "signature": dump.signature, "comment": dump.comment, "writer": dump.writer, "windows": dump.windows,
        "version": dump.version,
    }


def group_json(group: Group) -> Json:
    return {
        "by": group.by, "key": group.key, "title": group.title, "meaning": group.meaning, "remedy": group.remedy,
        "outcome": group.outcome, "runs": group.runs, "dumps": group.dumps, "machines": len(group.machines),
        "machine_names": sorted(group.machines)[:10], "first": group.first, "last": group.last,
        "versions": sorted(group.versions), "examples": group.examples,
    }


def problem_json(problem: Problem) -> Json:
    return {"machine": problem.machine, "path": problem.path, "reason": problem.reason}


_KINDS = {MachineRecord: ("machine", machine_json), Run: ("run", run_json), DumpRecord: ("dump", dump_json),
          Problem: ("problem", problem_json), Group: ("group", group_json)}


class Lines:
    """Writes each record as one line. All that is not ASCII is escaped, so that no text of a log reaches a terminal as it is."""

    def __init__(self, out: TextIO) -> None:
        self._out = out

    def take(self, record: Record | Group) -> None:
        kind, to_json = _KINDS[type(record)]
        self._out.write(json.dumps({"kind": kind, **to_json(record)}) + "\n")  # type: ignore[operator]

    def finish(self, groups: Groups) -> None:
        for group in groups:
            self.take(group)


def _line_json(line: LogLine) -> Json:
    return {"at": moment(line.at), "thread": line.thread, "level": line.level, "tag": line.tag, "text": line.text, "id": line.id,
            "number": line.number}


def _size(run: Run) -> int:
    """Characters of its texts."""
    return sum(len(line.text) for line in run.lines) + 4 * run.characters


class Page:
    """Collects what the page shows: of very much the latest, and of the runs that did not succeed before all others."""

    def __init__(self, catalogue: Catalogue) -> None:
        self._catalogue = catalogue
        self._runs: dict[bool, collections.deque[Run]] = {succeeded: collections.deque() for succeeded in (False, True)}
        self._dumps: list[DumpRecord] = []
        self._machines: list[MachineRecord] = []
        self._problems: list[Problem] = []
        self._left_out = {"runs": 0, "dumps": 0, "problems": 0}
        self._characters = 0

    def take(self, record: Record) -> None:
        if isinstance(record, Run):
            self._take_run(record)
        elif isinstance(record, MachineRecord):
            self._machines.append(record)
        elif isinstance(record, Problem):
            if len(self._problems) < MOST_PROBLEMS:
                self._problems.append(record)
            else:
                self._left_out["problems"] += 1
        elif len(self._dumps) < MOST_DUMPS:
            self._dumps.append(record)
        else:
            self._left_out["dumps"] += 1

    def _take_run(self, run: Run) -> None:
        runs = self._runs[run.outcome is Outcome.SUCCEEDED]
        runs.append(run)
        self._characters += _size(run)
        while len(runs) > MOST_RUNS or (self._characters > MOST_CHARACTERS and runs):
            self._characters -= _size(runs.popleft())
            self._left_out["runs"] += 1

    def _texts(self, ids: Iterable[str]) -> dict[str, Json]:
        entries = {entry.id: entry for entry in self._catalogue.entries}
        return {id: {"title": entries[id].name, "meaning": plain(entries[id].meaning), "remedy": plain(entries[id].remedy) or None,
                     "fault": entries[id].fault} for id in sorted(ids) if id in entries}

    def _results(self, codes: Iterable[int]) -> dict[str, Json]:
        found = {code: self._catalogue.result(code) for code in sorted(codes)}
        return {code_text(code): {"meaning": plain(result.meaning), "remedy": plain(result.remedy) or None}
                for code, result in found.items() if result}

    def data(self, groups: Groups, now: datetime.datetime) -> Json:
        runs = sorted((*self._runs[False], *self._runs[True]), key=lambda run: (run.begin, run.id))
        ids = {line.id for run in runs for line in run.lines if line.id}
        ids.update(id for run in runs for id in (*run.faults, *(cause.id for cause in run.causes if cause.id)))
        ids.update(run.failure.id for run in runs if run.failure)
        return {
            "machines": [machine_json(machine) for machine in self._machines],
            "runs": [{**run_json(run), "lines": [_line_json(line) for line in run.lines], "left_out": run.left_out} for run in runs],
            "dumps": [dump_json(dump) for dump in self._dumps],
            "groups": [group_json(group) for group in groups],
            "problems": [problem_json(problem) for problem in self._problems],
            "texts": self._texts(ids),
            "results": self._results({run.result for run in runs if run.result is not None}),
            "left_out": self._left_out,
            "made": now.strftime("%Y-%m-%dT%H:%M:%SZ"),
        }
