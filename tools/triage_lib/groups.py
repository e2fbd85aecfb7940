"""Counts what is alike: runs by the step that failed, dumps by their signature."""
from __future__ import annotations

import dataclasses
from collections.abc import Iterator

from .catalogue import Catalogue, plain
from .model import DumpRecord, Outcome, Run, moment

MOST_GROUPS = 2000   # of each kind; what is rarer than these, and comes later, is counted together
MOST_NAMES = 10
OTHERS = "others"


@dataclasses.dataclass(slots=True)
class _Span:
    """The first and the last of some moments, ms since 1970."""

    utc: bool
    count: int = 0
    first: int | None = None
    last: int | None = None

    def note(self, at: int | None) -> None:
        if at is not None:
            self.count += 1
            self.first = at if self.first is None else min(self.first, at)
            self.last = at if self.last is None else max(self.last, at)

    def text(self, at: int | None) -> str | None:
        return None if at is None else moment(at, self.utc)


@dataclasses.dataclass(slots=True)
class Group:
    by: str  # failure or signature
    key: str
    title: str
    meaning: str | None = None
    remedy: str | None = None
    outcome: str | None = None
    runs: int = 0
    dumps: int = 0
    machines: set[str] = dataclasses.field(default_factory=set)
    local: _Span = dataclasses.field(default_factory=lambda: _Span(utc=False))
    utc: _Span = dataclasses.field(default_factory=lambda: _Span(utc=True))
    versions: set[str] = dataclasses.field(default_factory=set)
    examples: list[str] = dataclasses.field(default_factory=list)

    @property
    def first(self) -> str | None:
        """In UTC, or, where that is not known of all, by the machines' own clocks."""
        return self._span.text(self._span.first)

    @property
    def last(self) -> str | None:
        return self._span.text(self._span.last)

    @property
    def _span(self) -> _Span:
        return self.utc if self.utc.count >= self.local.count else self.local

    def note(self, example: str, machine: str, version: str | None, local: int | None, utc: int | None) -> None:
        self.machines.add(machine)
        if version and len(self.versions) < MOST_NAMES:
            self.versions.add(version)
        self.local.note(local)
        self.utc.note(utc)
        if len(self.examples) < MOST_NAMES:
            self.examples.append(example)


class Groups:
    def __init__(self, catalogue: Catalogue) -> None:
        self._entries = {entry.id: entry for entry in catalogue.entries}
        self._groups: dict[tuple[str, str], Group] = {}

    def __iter__(self) -> Iterator[Group]:
        """The failures first; of each kind those that hit the most machines, then the most runs or dumps."""
        def order(group: Group) -> tuple[str, int, int, int, str]:
            return group.by, -len(group.machines), -group.runs, -group.dumps, group.key

        return iter(sorted(self._groups.values(), key=order))

    def _group(self, by: str, key: str, title: str) -> Group:
        group = self._groups.get((by, key))
        if group is None:
            if len(self._groups) >= 2 * MOST_GROUPS:
                key = title = OTHERS
            group = self._groups.setdefault((by, key), Group(by, key, title))
        return group

    def add_run(self, run: Run) -> None:
        if run.outcome is Outcome.SUCCEEDED or run.failure is None:
            return
        group = self._group("failure", run.failure.id, run.failure.title)
        if group.runs == 0 and group.key != OTHERS:
            entry = self._entries.get(run.failure.id)
            by_text = entry is not None and run.outcome is Outcome.FAILED
            # The words of one run, such as a path, say nothing about the others.
            group.meaning = plain(entry.meaning) if by_text and entry else run.failure.meaning
            group.remedy = plain(entry.remedy) if by_text and entry else run.failure.remedy
            group.outcome = run.outcome.value
        group.runs += 1
        group.dumps += len(run.dumps)
        utc = None if run.utc_offset is None else run.begin - run.utc_offset * 60_000
        group.note(run.id, run.machine, run.version, run.begin, utc)

    def add_dump(self, dump: DumpRecord) -> None:
        group = self._group("signature", dump.signature, dump.title)
        group.dumps += 1
        group.runs += dump.run is not None
        group.outcome = {"crash": Outcome.CRASHED.value, "fatal-error": Outcome.FAILED.value}.get(dump.cause)
        group.note(dump.id, dump.machine, dump.version, None, None if dump.time is None else dump.time * 1000)
