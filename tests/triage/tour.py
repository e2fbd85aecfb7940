#!/usr/bin/python3
"""What tools/triage says of the folder that the tour left: tour.py FOLDER STORE...

Everything in it has to be understood: each request that was refused with its step and remedy, a wrong one with what is wrong in it,
and each dump with its run and, where the tour wrote down which, with the function and line. The last line counts.
"""
import json
import pathlib
import re
import subprocess
import sys
from collections.abc import Iterator
from typing import Any

TRIAGE = pathlib.Path(__file__).resolve().parents[2] / "tools/triage"
WRONG_REQUEST = ("0x00000057", "0x000000a0")

Record = dict[str, Any]


def wrong_run(run: Record) -> Iterator[str]:
    if run["outcome"] == "succeeded":
        return
    failure = run["failure"]
    if run["outcome"] == "did-not-return" or failure["id"] == "unknown" or not (failure["meaning"] and failure["remedy"]):
        yield "has no step with its meaning and remedy"
    request = run["request"]
    if run["result"] in WRONG_REQUEST and not (request["wrong"] or request["words"].startswith("nothing")):
        yield "does not say what is wrong in the request"


def wrong_dump(dump: Record, places: dict[str, str], outcomes: dict[str, str]) -> Iterator[str]:
    if dump["run"] is None:
        yield "belongs to no run"
    elif (dump["cause"] == "crash") != (outcomes[dump["run"]] == "crashed"):
        yield f"is called a {dump['cause']}, and its run {outcomes[dump['run']]}"
    if not dump["symbols"] or not all(image["matches"] for image in dump["symbols"]):
        yield f"lacks symbols: {dump['stack_note']}"
    own = [f"{frame['function']} at {frame['file']}:{frame['line']}" for frame in dump["stack"] if frame["ours"]]
    if not own or not re.search(places.get(dump["path"], " at .*:[0-9]"), own[0]):
        yield f"is innermost {own[:1]}, which had to be: {places.get(dump['path'], 'a function and line')}"


def main() -> int:
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    folder = pathlib.Path(sys.argv[1])
    symbols = [word for store in sys.argv[2:] for word in ("--symbols", store)]
    out = subprocess.run([TRIAGE, "--json", *symbols, folder], stdout=subprocess.PIPE, check=False, text=True, timeout=300).stdout
    records = [json.loads(line) for line in out.splitlines()]
    rows = [line.split("\t") for line in (folder / "dumps.tsv").read_text(encoding="utf-8").splitlines()]
    places = {name: place for name, _, place, _ in rows}
    outcomes = {record["id"]: record["outcome"] for record in records if record["kind"] == "run"}
    passed = failed = 0
    for record in records:
        if record["kind"] == "problem":
            found = [record["reason"]]
        elif record["kind"] == "run":
            found = list(wrong_run(record))
        elif record["kind"] == "dump":
            found = list(wrong_dump(record, places, outcomes))
        else:
            continue
        for difference in found:
            print(f"*** {record.get('path') or record.get('command_line')}: {difference}")
        passed, failed = passed + (not found), failed + bool(found)
    missing = set(places) - {record["path"] for record in records if record["kind"] == "dump"}
    for name in sorted(missing):
        print(f"*** {name} is not read")
    print(f"{passed} passed, {failed + len(missing)} failed")
    return 1 if failed or missing or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
