"""What every text and every result of the module means: docs/catalogue.toml, read and ready to recognise texts."""
from __future__ import annotations

import dataclasses
import functools
import pathlib
import re
import tomllib
from collections.abc import Iterable, Mapping

PATH = pathlib.Path(__file__).resolve().parents[2] / "docs/catalogue.toml"
KINDS = ("context", "log", "error", "system")
ROLES = ("", "begin", "started", "crash", "no-crash", "dumped", "end", "again")

# A conversion of printf, and what it writes.
_CONVERSION = re.compile(r"%(?:ls|s|d|08x|x)")
_VALUES = {"%s": "(.*)", "%ls": "(.*)", "%d": r"(-?\d+)", "%x": "([0-9a-f]+)", "%08x": "([0-9a-f]{8})"}


class BadCatalogue(Exception):
    """The file is not as it has to be."""


@dataclasses.dataclass(frozen=True)
class Entry:
    kind: str              # log, context, error or system
    text: str              # a format of printf
    meaning: str           # Markdown, as in the page
    remedy: str = ""
    level: str = ""
    tag: str = ""
    fields: tuple[str, ...] = ()
    title: str = ""
    fault: bool = False
    own_code: bool = True        # of a failure: the results say what its code means
    role: str = ""
    step: str = ""
    step_before: str = ""
    stuck: tuple[str, ...] = ()  # meaning and remedy when nothing follows

    @functools.cached_property
    def id(self) -> str:
        return f"{self.kind}: {self.shown}"

    @functools.cached_property
    def shown(self) -> str:
        """The text with the names of its fields, for people."""
        names = iter(self.fields)
        text = _CONVERSION.sub(lambda _: next(names), self.text)
        if self.kind == "context":
            return f"{text}: TEXT (code 0x...)"
        return text or "(nothing)"

    @property
    def name(self) -> str:
        return self.title or self.shown


@dataclasses.dataclass(frozen=True)
class Result:
    code: int
    meaning: str
    remedy: str = ""
    shown: str = ""                 # in the page, where the row stands for more than its code
    also: tuple[int, ...] = ()      # other codes that mean the same

    @property
    def name(self) -> str:
        return self.shown or f"`0x{self.code:08x}`" + (f" ({self.code})" if 0 < self.code < 0x10000 else "")


@dataclasses.dataclass(frozen=True)
class Match:
    entry: Entry
    values: tuple[str, ...] = ()

    @property
    def fields(self) -> dict[str, str]:
        return dict(zip(self.entry.fields, self.values))


@functools.lru_cache(1000)
def plain(markdown: str) -> str:
    """Markdown as a text without marks, and without the references to other parts of the page."""
    text = re.sub(r" \(\[[^\]]*\]\([^)]*\)\)", "", markdown)
    return re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", text).replace("`", "")


def filled(markdown: str, fields: Mapping[str, str]) -> str:
    """A plain text in which the names of fields are replaced by their values."""
    names = [re.escape(name) for name in fields if name.isupper()]

    def value(name: re.Match[str]) -> str:
        return fields[name[0]] if fields[name[0]].isdigit() else f"“{fields[name[0]]}”"

    return re.sub(rf"\b(?:{'|'.join(names)})\b", value, plain(markdown)) if names else plain(markdown)


class _Texts:
    """Finds the entry of a text: at once when nothing in it varies, else among those that begin with the same word."""

    def __init__(self, entries: Iterable[Entry]) -> None:
        self._exact: dict[str, Match] = {}
        self._varying: dict[str, list[tuple[re.Pattern[str], Entry]]] = {}
        for entry in entries:
            if not _CONVERSION.search(entry.text):
                self._exact[entry.text] = Match(entry)
                continue
            literals = [re.escape(literal) for literal in _CONVERSION.split(entry.text)]
            values = [_VALUES[conversion] for conversion in _CONVERSION.findall(entry.text)]
            pattern = literals[0] + "".join(value + literal for value, literal in zip(values, literals[1:]))
            first = entry.text.split(" ", 1)[0]
            if "%" in first:
                raise BadCatalogue(f"'{entry.text}' has to begin with a word")
            self._varying.setdefault(first, []).append((re.compile(pattern, re.DOTALL), entry))

    def find(self, text: str) -> Match | None:
        match = self._exact.get(text)
        if match is None:
            for pattern, entry in self._varying.get(text.split(" ", 1)[0], ()):
                if found := pattern.fullmatch(text):
                    return Match(entry, found.groups())
        return match


class Catalogue:
    def __init__(self, entries: list[Entry], results: list[Result]) -> None:
        self.entries = entries
        self.results = results
        self._results = {code: result for result in results for code in (result.code, *result.also)}
        self._contexts = {(entry.tag, entry.text): entry for entry in entries if entry.kind == "context"}
        self._errors = _Texts(entry for entry in entries if entry.kind in ("error", "system"))
        tags = {entry.tag for entry in entries if entry.tag}
        self._lines = {tag: _Texts(entry for entry in entries if entry.kind == "log" and entry.tag == tag) for tag in tags}

    def tags(self) -> frozenset[str]:
        """Those of the module; whatever has another one is another component's."""
        return frozenset(self._lines)

    def line(self, tag: str, text: str) -> Match | None:
        """A line of the log; for a failure it is that of its context, with the rest as the only value."""
        if match := self._lines[tag].find(text):
            return match
        context, colon, rest = text.partition(": ")
        entry = self._contexts.get((tag, context)) if colon else None
        return Match(entry, (rest,)) if entry else None

    def error(self, text: str) -> Match | None:
        return self._errors.find(text)

    def result(self, code: int) -> Result | None:
        return self._results.get(code)


def _entries(kind: str, tables: list[dict[str, object]]) -> Iterable[Entry]:
    for table in tables:
        try:
            given = dict(table, **{name: tuple(table.get(name, ())) for name in ("fields", "stuck")})  # type: ignore[arg-type]
            entry = Entry(kind, **{"fault": kind in ("error", "system"), **given})  # type: ignore[arg-type]
        except TypeError as failure:
            raise BadCatalogue(f"{kind} '{table.get('text')}': {failure}") from failure
        if len(entry.fields) != len(_CONVERSION.findall(entry.text)):
            raise BadCatalogue(f"{kind} '{entry.text}' needs a name for each of its values")
        if len(entry.stuck) not in (0, 2):
            raise BadCatalogue(f"{kind} '{entry.text}' needs a meaning and a remedy for where it got stuck")
        if entry.role not in ROLES:
            raise BadCatalogue(f"{kind} '{entry.text}' has the unknown role '{entry.role}'")
        yield entry


def load(path: pathlib.Path = PATH) -> Catalogue:
    try:
        document = tomllib.loads(path.read_text(encoding="utf-8"))
        if unknown := set(document) - {"result", *KINDS}:
            raise BadCatalogue(f"unknown tables: {', '.join(sorted(unknown))}")
        entries = [entry for kind in KINDS for entry in _entries(kind, document.get(kind, []))]
        results = [Result(**dict(table, also=tuple(table.get("also", ())))) for table in document["result"]]
    except (tomllib.TOMLDecodeError, TypeError, KeyError, OSError) as failure:
        raise BadCatalogue(f"{path.name}: {failure}") from failure
    ids = [entry.id for entry in entries]
    if twice := {one for one in ids if ids.count(one) > 1}:
        raise BadCatalogue(f"more than once: {', '.join(sorted(twice))}")
    return Catalogue(entries, results)
