"""The command line of tools/triage."""
from __future__ import annotations

import argparse
import datetime
import io
import os
import pathlib
import sys
import tempfile
from collections.abc import Iterable

from . import catalogue, report_html, report_json, report_text, stacks
from .examine import Options, Record, examine
from .groups import Groups
from .log import SUITE_FORMAT, BadFormat, LineFormat
from .model import DumpRecord, Problem, Run

STORES = pathlib.Path(__file__).resolve().parents[2] / "build/stores"
UNDERSTOOD, NOT_ALL, WRONG_USAGE = 0, 1, 2


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="triage", description="Says what happened on the machines whose log folders it is given, each a folder or a zip.",
        epilog="The status is 0 when all of it was understood, 1 when something was not, and 2 for a wrong command line.")
    parser.add_argument("inputs", nargs="+", metavar="FOLDER-OR-ZIP")
    parser.add_argument("--html", metavar="FILE", help="write one page with everything in it, too")
    parser.add_argument("--json", action="store_true",
                        help="one line of JSON for each run, dump, group, problem and machine, instead of the summary")
    parser.add_argument("--all", action="store_true", help="show the runs that succeeded, too")
    parser.add_argument("--symbols", action="append", metavar="STORE",
                        help="a symbol store, its folder or its archive; may be given again. Without it those in build/stores are taken")
    parser.add_argument("--line-format", default=SUITE_FORMAT, metavar="FORMAT", help=f"how a line of the log looks: {SUITE_FORMAT}")
    return parser


def own_stores() -> list[pathlib.Path]:
    """Those of the build beside this program; none when it has made none."""
    return [*sorted(STORES.glob("package/*-symbols.zip")), *STORES.glob("standins")]


class _Progress:
    """A bar on a terminal; nothing elsewhere."""

    def __init__(self, machines: int) -> None:
        self._machines = machines
        self._shown = sys.stderr.isatty() and machines > 1

    def __call__(self, done: int, name: str) -> None:
        if not self._shown:
            return
        if done < 0:
            sys.stderr.write("\r\033[K")
        else:
            filled = "#" * (done * 40 // self._machines)
            sys.stderr.write(f"\r\033[K[{filled:<40}] {done}/{self._machines} {report_text.visible(name)[-40:]}")
        sys.stderr.flush()


def _write(path: str, pieces: Iterable[str]) -> None:
    """In one step: whoever looks at the file sees the old one or the whole new one. Where a link leads is written, the link stays."""
    target = pathlib.Path(os.path.realpath(path))
    with tempfile.NamedTemporaryFile("w", encoding="utf-8", dir=target.parent, prefix=target.name, delete=False) as file:
        try:
            for piece in pieces:
                file.write(piece)
            file.close()
            os.chmod(file.name, 0o644)
            os.replace(file.name, target)
        except BaseException:
            os.unlink(file.name)
            raise


def _why_not_writable(path: str) -> str:
    """What forbids to put the page there; empty: nothing. A file that is no page is most likely one that somebody sent."""
    folder = os.path.dirname(os.path.realpath(path))
    if not path:
        return "the name is empty"
    if os.path.exists(path) and not os.path.isfile(path):
        return "it is a folder" if os.path.isdir(path) else "it is a pipe or a device"
    if not os.path.isdir(folder):
        return f"there is no folder '{folder}'"
    if not os.access(folder, os.W_OK):
        return f"no right to write in '{folder}'"
    if os.path.exists(path):
        with open(path, "rb") as file:
            begin = file.read(len(report_html.BEGIN))
        if begin and begin != report_html.BEGIN:
            return "it is there, and no page"
    return ""


def _mute() -> None:
    """Nobody reads what is written from now on."""
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


def _named_once(inputs: list[str]) -> list[str]:
    """Each folder and zip once: one that has several names, or is named again, would count as so many machines."""
    found: dict[object, str] = {}
    for path in inputs:
        try:
            status = os.stat(path)
            place: object = (status.st_dev, status.st_ino)
        except (OSError, ValueError):
            place = path
        if place in found:
            what = "is named again" if path == found[place] else f"is '{found[place]}' under another name"
            print(report_text.visible(f"triage: '{path}' {what}, and counts once"), file=sys.stderr)
        found.setdefault(place, path)
    return list(found.values())


def run(arguments: argparse.Namespace) -> int:
    if arguments.html is not None:
        if why := _why_not_writable(arguments.html):  # before the work is done
            raise OSError(f"'{arguments.html}' cannot be written: {why}")
    known = catalogue.load()
    symbols = stacks.Symbols(own_stores() if arguments.symbols is None else arguments.symbols)
    options = Options(LineFormat(arguments.line_format), symbols, keep_lines=arguments.html is not None)
    groups = Groups(known)
    out: report_json.Lines | report_text.Summary
    out = report_json.Lines(sys.stdout) if arguments.json else report_text.Summary(sys.stdout, arguments.all)
    page = report_json.Page(known) if arguments.html is not None else None
    problems = 0
    inputs = _named_once(arguments.inputs)

    def take(record: Record) -> None:
        nonlocal problems
        problems += isinstance(record, Problem)
        if isinstance(record, Run):
            groups.add_run(record)
        elif isinstance(record, DumpRecord):
            groups.add_dump(record)
        if page:
            page.take(record)
        try:
            out.take(record)
        except BrokenPipeError:
            if page is None:
                raise
            _mute()

    with symbols:
        examine(inputs, known, options, take, _Progress(len(inputs)))
    if page:
        _write(arguments.html, report_html.pieces(page.data(groups, datetime.datetime.now(datetime.timezone.utc))))
    try:
        out.finish(groups)
        sys.stdout.flush()
    except BrokenPipeError:
        _mute()
    return NOT_ALL if problems else UNDERSTOOD


def main(words: list[str]) -> int:
    sys.stdout = sys.stdout or open(os.devnull, "w", encoding="utf-8")  # whoever closed it wants nothing of it
    sys.stderr = sys.stderr or open(os.devnull, "w", encoding="utf-8")
    arguments = _parser().parse_args(words)
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="backslashreplace")  # a terminal may have no such characters
    try:
        return run(arguments)
    except (BadFormat, catalogue.BadCatalogue, stacks.BadStore) as failure:
        print(report_text.visible(f"triage: {failure}"), file=sys.stderr)
        return WRONG_USAGE
    except BrokenPipeError:
        _mute()
        return NOT_ALL
    except OSError as failure:
        print(report_text.visible(f"triage: {failure}"), file=sys.stderr)
        return WRONG_USAGE
