"""The suite's log: which files it is, and how its lines look."""
from __future__ import annotations

import datetime
import re
from collections.abc import Iterator
from typing import BinaryIO

LONGEST_LINE = 1 << 17       # bytes, enough for every command line; of a longer one the beginning is read

SUITE_FORMAT = "{year}-{month}-{day} {hour}:{minute}:{second}.{fraction} {process} {thread} {level} {tag} {text}"
_FIELDS = {
    "year": r"\d{4}", "month": r"\d{1,2}", "day": r"\d{1,2}", "hour": r"[01]?\d|2[0-3]", "minute": r"[0-5]?\d", "second": r"[0-5]?\d",
    "fraction": r"\d{1,9}", "process": r"\d{1,10}", "thread": r"\d{1,10}", "level": r"\S{1,20}", "tag": r"\S{1,40}", "text": r".*",
}
_OPTIONAL = {"fraction": "0", "level": "?", "thread": "0"}

_LOG = re.compile(r"wsc\.log(?:[._-]?(?P<suffix>old|bak|\d+))?", re.IGNORECASE)


def is_log(name: str) -> bool:
    """Whether a file has the name of the log, or one that the log library gives to an older part of it."""
    return _LOG.fullmatch(name) is not None


def log_order(name: str) -> tuple[int, str]:
    """Sorts the files of one log: what was renamed is older, and the higher its number the older it is."""
    match = _LOG.fullmatch(name)
    suffix = (match["suffix"] or "") if match else ""
    rank = -1 - int(suffix[:9]) if suffix.isdigit() else -1 if suffix else 0
    return rank, name.lower()


class BadFormat(Exception):
    """A line format that cannot be used."""


class LineFormat:
    """How a line of the log looks."""

    def __init__(self, template: str = SUITE_FORMAT) -> None:
        names = re.findall(r"{(\w*)}", template)
        if wrong := [name for name in names if name not in _FIELDS or names.count(name) > 1]:
            raise BadFormat(f"the line format names {{{wrong[0]}}}, which there is not, or more than once")
        if missing := [name for name in _FIELDS if name not in names and name not in _OPTIONAL]:
            raise BadFormat(f"the line format lacks {{{missing[0]}}}")
        if not template.endswith("{text}"):
            raise BadFormat("the line format has to end with {text}")
        parts = re.split(r"{(\w+)}|( +)", template)
        pattern = ""
        for literal, name, blanks in zip(parts[::3], [*parts[1::3], None], [*parts[2::3], None]):
            pattern += re.escape(literal) + (f"(?P<{name}>{_FIELDS[name]})" if name else " +" if blanks else "")
        for name, value in _OPTIONAL.items():
            if name not in names:
                pattern += f"(?P<{name}>)"
        self._match = re.compile(pattern, re.DOTALL).fullmatch
        self._groups = ("year", "month", "day", "hour", "minute", "second", "fraction", "process", "thread", "level", "tag", "text")
        self._days: dict[tuple[str, str, str], int | None] = {}

    def read(self, line: str) -> tuple[int, int, int, str, str, str] | None:
        """(ms since 1970, process, thread, level, tag, text) of a line; None for one that looks otherwise."""
        match = self._match(line)
        if match is None:
            return None
        year, month, day, hour, minute, second, fraction, process, thread, level, tag, text = match.group(*self._groups)
        midnight = self._days.get((year, month, day), -1)
        if midnight == -1:
            midnight = self._midnight(year, month, day)
        if midnight is None:
            return None
        seconds = int(hour) * 3600 + int(minute) * 60 + int(second)
        milliseconds = int(fraction if len(fraction) == 3 else (fraction + "000")[:3])
        return midnight + seconds * 1000 + milliseconds, int(process), int(thread or 0), level or "?", tag, text

    def _midnight(self, year: str, month: str, day: str) -> int | None:
        if len(self._days) > 10_000:
            self._days.clear()
        try:
            days = (datetime.date(int(year), int(month), int(day)) - datetime.date(1970, 1, 1)).days
        except ValueError:
            self._days[year, month, day] = None
            return None
        return self._days.setdefault((year, month, day), days * 86_400_000)


def raw_lines(stream: BinaryIO) -> Iterator[tuple[bytes, bool]]:
    """The lines of a file without their ends, and whether each is there as a whole. What is too long of a line is left out."""
    rest = b""
    skipping = False
    while chunk := stream.read(1 << 18):
        *lines, rest = (rest + chunk).split(b"\n")
        if lines and skipping:
            lines = lines[1:]
            skipping = False
        for line in lines:
            yield line[:LONGEST_LINE], len(line) <= LONGEST_LINE
        if skipping:
            rest = b""
        elif len(rest) > LONGEST_LINE:
            yield rest[:LONGEST_LINE], False
            rest, skipping = b"", True
    if rest:
        yield rest, False
