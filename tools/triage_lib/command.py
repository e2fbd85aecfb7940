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


def _check_writable(path: str) -> None:
    """Before the work is done. A device or a pipe would be replaced by the page, and is refused as a folder is."""
    usable = os.path.isfile(path) if os.path.exists(path) else path != ""
    if not usable or not os.access(os.path.dirname(os.path.realpath(path)) + "/", os.W_OK):
        raise OSError(f"'{path}' cannot be written")


def run(arguments: argparse.Namespace) -> int:
    if arguments.html is not None:
        _check_writable(arguments.html)
    known = catalogue.load()
    symbols = stacks.Symbols(own_stores() if arguments.symbols is None else arguments.symbols)
    options = Options(LineFormat(arguments.line_format), symbols, keep_lines=arguments.html is not None)
    groups = Groups(known)
    out: report_json.Lines | report_text.Summary
    out = report_json.Lines(sys.stdout) if arguments.json else report_text.Summary(sys.stdout, arguments.all)
    page = report_json.Page(known) if arguments.html is not None else None
    problems = 0

    def take(record: Record) -> None:
        nonlocal problems
        problems += isinstance(record, Problem)
        if isinstance(record, Run):
            groups.add_run(record)
        elif isinstance(record, DumpRecord):
            groups.add_dump(record)
        out.take(record)
        if page:
            page.take(record)

    with symbols:
        examine(arguments.inputs, known, options, take, _Progress(len(arguments.inputs)))
    out.finish(groups)
    if page:
        _write(arguments.html, report_html.pieces(page.data(groups, datetime.datetime.now(datetime.timezone.utc))))
    sys.stdout.flush()
    return NOT_ALL if problems else UNDERSTOOD


def main(words: list[str]) -> int:
    arguments = _parser().parse_args(words)
    if sys.stdout is None:
        sys.stdout = open(os.devnull, "w", encoding="utf-8")
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="backslashreplace")  # a terminal may have no such characters
    try:
        return run(arguments)
    except (BadFormat, catalogue.BadCatalogue, stacks.BadStore) as failure:
        print(f"triage: {failure}", file=sys.stderr)
        return WRONG_USAGE
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return NOT_ALL
    except OSError as failure:
        print(f"triage: {failure}", file=sys.stderr)
        return WRONG_USAGE
