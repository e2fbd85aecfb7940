#!/usr/bin/python3
"""Compares docs/catalogue.toml with the texts in src/, and makes the tables of docs/support.md from it.

  scripts/catalogue.py --write     makes the tables anew
  scripts/catalogue.py --check     the last line is "N passed, M failed"
  scripts/catalogue.py --list      the texts in src/

A text is what src/ hands to the log (log::Info and its like, log::LogStream, the context of log::LogException) or to a failure
(exceptions::error and fatal, or a function that throws what it is given). Every one has its entry, every entry has its text in src/,
level and tag included. Codes that src/ names where it throws have a result in the catalogue.
"""
from __future__ import annotations

import ast
import dataclasses
import pathlib
import re
import sys
from collections.abc import Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from triage_lib import catalogue  # noqa: E402

SOURCES = ROOT / "src"
PAGE = ROOT / "docs/support.md"
LEVELS = ("Info", "Debug", "Warning", "Error", "Critical")

LITERAL = re.compile(r'L?("(?:[^"\\\n]|\\.)*")')
COMMENT = re.compile(r'//[^\n]*|/\*.*?\*/|("(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)+\')', re.S)
LOG_CALL = re.compile(rf"\blog::({'|'.join(LEVELS)})\(")
CONTEXT_CALL = re.compile(r"\blog::(LogException|LogExceptionAtLevel)\(")
STREAM = re.compile(r"\bLogStream\((?:log::)?LogLevel::(\w+), tag\)(.*?);", re.S)
THROW = re.compile(r"\bexceptions::(?:error|fatal)\(")
TAG = re.compile(r'\blog::Tag tag\("(\w+)"\)')
CONSTANT = re.compile(r"\bconstexpr \S+ (k\w+) = (0x[0-9A-Fa-f]+|\d+);")
SYSTEM_CODES = {"ERROR_ACCESS_DENIED": 5, "ERROR_PATH_NOT_FOUND": 3, "ERROR_MORE_DATA": 234}


@dataclasses.dataclass(frozen=True, order=True)
class Text:
    kind: str   # log, context or error
    text: str   # as in src/, a format of printf
    level: str  # of a log text, else empty
    tag: str
    place: str = dataclasses.field(compare=False)

    def __str__(self) -> str:
        return " ".join(filter(None, (self.kind, self.tag, self.level, f"text '{self.text}'")))


@dataclasses.dataclass
class Source:
    name: str
    text: str  # without comments
    tag: str

    def place(self, at: int) -> str:
        return f"{self.name}:{self.text.count(chr(10), 0, at) + 1}"


def without_comments(text: str) -> str:
    """The same lines without their comments."""
    return COMMENT.sub(lambda found: found[1] or re.sub(r"[^\n]+", "", found[0]), text)


def arguments(text: str, begin: int) -> list[str]:
    """What stands between the bracket before `begin` and the one that closes it, cut at its commas."""
    depth, cut, at, parts = 1, begin, begin, []
    while depth:
        if literal := LITERAL.match(text, at):
            at = literal.end()
            continue
        if text[at] in "([{":
            depth += 1
        elif text[at] in ")]}":
            depth -= 1
        if not depth or (depth == 1 and text[at] == ","):
            parts.append(text[cut:at].strip())
            cut = at + 1
        at += 1
    return parts


def value(argument: str) -> str | None:
    """The text of an argument that is nothing but literals."""
    if not argument or LITERAL.sub("", argument).strip():
        return None
    return "".join(ast.literal_eval(literal) for literal in LITERAL.findall(argument))


def read_sources() -> list[Source]:
    sources = []
    for path in sorted(SOURCES.rglob("*")):
        if path.suffix in (".cpp", ".h"):
            text = without_comments(path.read_text(encoding="utf-8"))
            sources.append(Source(str(path.relative_to(ROOT)), text, ""))
    tags = {source.name: found[1] for source in sources if (found := TAG.search(source.text))}
    shared = tags.get("src/crashguard/guard_log.h", "")
    for source in sources:
        source.tag = tags.get(source.name, shared if "crashguard" in source.name else "wsc")
    return sources


def logged(source: Source) -> Iterator[Text]:
    for call in LOG_CALL.finditer(source.text):
        text = next(filter(None, map(value, arguments(source.text, call.end()))), None)
        if text is not None:
            yield Text("log", text, call[1].lower(), source.tag, source.place(call.start()))
    for stream in STREAM.finditer(source.text):
        parts = [part.strip() for part in stream[2].split("<<")[1:]]
        text = "".join("%s" if value(part) is None else str(value(part)) for part in parts)
        yield Text("log", text, stream[1], source.tag, source.place(stream.start()))
    for call in CONTEXT_CALL.finditer(source.text):
        context = next(filter(None, map(value, arguments(source.text, call.end()))), None)
        if context is not None:
            yield Text("context", context, "error", source.tag, source.place(call.start()))


def forwarder(source: Source, at: int, parameter: str) -> str:
    """The name of the function around `at` that throws the text of its parameter."""
    heads = re.finditer(rf"\b(\w+)\([^(){{}}]*\bconst (?:char|wchar_t)\* {parameter}\b[^(){{}}]*\)[^;{{}}]*\{{", source.text[:at])
    names = [head[1] for head in heads]
    if not names:
        raise LookupError(f"{source.place(at)}: what is thrown here is not known")
    return names[-1]


def thrown(source: Source) -> Iterator[Text]:
    forwarders = set()
    for call in THROW.finditer(source.text):
        given = arguments(source.text, call.end())
        texts = [text for text in map(value, given) if text is not None]
        if texts and texts[0] != "%s":
            yield Text("error", texts[0], "", "", source.place(call.start()))
        elif given != [""]:
            parameter = re.match(r"\w+", given[-1] if texts else given[1])
            forwarders.add(forwarder(source, call.start(), parameter[0] if parameter else ""))
    for name in forwarders:
        for call in re.finditer(rf"(?<!void )\b{name}\(", source.text):
            text = next(filter(None, map(value, arguments(source.text, call.end()))), None)
            if text:
                yield Text("error", text, "", "", source.place(call.start()))


def codes(sources: list[Source]) -> dict[str, int]:
    """The constants that src/ gives to a failure as its code, with their values."""
    values = dict(SYSTEM_CODES)
    for source in sources:
        values.update((name, int(number, 0)) for name, number in CONSTANT.findall(source.text))
    found = {}
    for source in sources:
        for call in THROW.finditer(source.text):
            for name in re.findall(r"\b(?:k[A-Z]|ERROR_)\w+", arguments(source.text, call.end())[0]):
                if name not in ("ERROR_NO_MORE_FILES",):  # asked for, not thrown
                    found[name] = values[name]
    return found


def differences(known: catalogue.Catalogue, sources: list[Source]) -> Iterator[str]:
    texts = {text for source in sources for text in (*logged(source), *thrown(source))}
    entries = {Text(entry.kind, entry.text, entry.level, entry.tag, entry.id) for entry in known.entries if entry.kind != "system"}
    for text in sorted(texts - entries):
        yield f"{text.place}: the catalogue lacks the {text}"
    for entry in sorted(entries - texts):
        yield f"docs/catalogue.toml: src/ has no {entry}"
    for name, code in codes(sources).items():
        if not known.result(code):
            yield f"docs/catalogue.toml: there is no result 0x{code:08x}, which src/ throws as {name}"


# --- the page ------------------------------------------------------------------------------------------------------------------


def row(cells: tuple[str, ...]) -> str:
    texts = [cell.replace("|", "\\|") for cell in cells]
    return "|" + "|".join(f" {text} " if text else " " for text in texts) + "|"


def table(head: tuple[str, ...], rows: list[tuple[str, ...]]) -> str:
    return "\n".join([row(head), "|" + "---|" * len(head), *map(row, rows)])


def entry_rows(entries: list[catalogue.Entry]) -> list[tuple[str, ...]]:
    """One row for each entry; neighbours with the same words share one."""
    rows: list[tuple[str, ...]] = []
    for entry in entries:
        shown, words = f"`{entry.shown}`", (entry.meaning, entry.remedy)
        if rows and rows[-1][1:] == words:
            rows[-1] = (f"{rows[-1][0]}, {shown}", *words)
        else:
            rows.append((shown, *words))
    return rows


def tables(known: catalogue.Catalogue) -> dict[str, str]:
    head = ("Meaning", "What to look at or do")
    results = [(result.name, result.meaning, result.remedy) for result in known.results]
    log = [entry for entry in known.entries if entry.kind in ("log", "context")]
    return {
        "results": table(("Result", *head), results),
        "log": table(("Line", *head), entry_rows([entry for entry in log if entry.tag == "wsc"])),
        "guard": table(("Line", *head), entry_rows([entry for entry in log if entry.tag == "crashguard"])),
        "errors": table(("Text", *head), entry_rows([entry for entry in known.entries if entry.kind in ("error", "system")])),
    }


def with_tables(page: str, known: catalogue.Catalogue) -> str:
    for name, text in tables(known).items():
        begin, end = f"<!-- made from catalogue.toml: {name} -->\n", "\n<!-- end -->"
        before, found, rest = page.partition(begin)
        _, found_end, after = rest.partition(end)
        if not found or not found_end:
            raise LookupError(f"docs/support.md has no place for the table '{name}'")
        page = f"{before}{begin}\n{text}\n{end}{after}"
    return page


def check(known: catalogue.Catalogue, sources: list[Source]) -> int:
    found = list(differences(known, sources))
    if with_tables(PAGE.read_text(encoding="utf-8"), known) != PAGE.read_text(encoding="utf-8"):
        found.append("docs/support.md is stale; scripts/catalogue.py --write makes its tables anew")
    for difference in found:
        print(difference)
    print(f"{len(known.entries) + len(known.results)} texts and results in the catalogue: {int(not found)} passed, {len(found)} failed")
    return 1 if found else 0


def main() -> int:
    if sys.argv[1:] not in (["--write"], ["--check"], ["--list"]):
        print(__doc__, file=sys.stderr)
        return 2
    try:
        sources = read_sources()
        if sys.argv[1] == "--list":
            for text in sorted({text for source in sources for text in (*logged(source), *thrown(source))}):
                print(f"{text.kind:8}{text.level:9}{text.tag:11}{text.text}")
            return 0
        known = catalogue.load()
        if sys.argv[1] == "--check":
            return check(known, sources)
        PAGE.write_text(with_tables(PAGE.read_text(encoding="utf-8"), known), encoding="utf-8")
    except (LookupError, catalogue.BadCatalogue) as failure:
        print(failure)
        print("0 passed, 1 failed")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
