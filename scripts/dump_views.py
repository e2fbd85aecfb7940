#!/usr/bin/python3
"""Has two independent readers open the minidumps that the tour kept: dump_views.py [--quiet] FOLDER STORE...

FOLDER holds the dumps and dumps.tsv, in which the tour wrote what must be seen in them. Each dump is shown, with --quiet only one
that differs. The last line counts them.
"""
import pathlib
import re
import subprocess
import sys

import minidump


def differences(path, code, place, stores):
    """What is not as it has to be in one dump."""
    _, text = minidump.read_streams(path)
    stops = minidump.read_stops(path, text, stores)
    exception = minidump.read_exception(text)
    if not exception or exception[0] != code:
        yield f"obj2yaml had to find the exception 0x{code:08x}"
    elif exception[1] not in minidump.read_threads(text):
        yield "obj2yaml does not find the thread that stopped"
    if not stops or stops[0].code != code:
        yield f"the debugger had to find the exception 0x{code:08x}"
    own = minidump.own_stops(stops)
    if not own or not re.search(place, f"{own[0].function} at {own[0].place}"):
        yield f"the debugger had to see innermost: {place}"


def main():
    words = sys.argv[1:]
    quiet = words[:1] == ["--quiet"]
    folders = words[quiet:]
    if len(folders) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    shelf = pathlib.Path(folders[0])
    stores = [minidump.Store(store) for store in folders[1:]]
    failed = 0
    lines = (shelf / "dumps.tsv").read_text(encoding="utf-8").splitlines()
    for line in lines:
        name, code, place, step = line.split("\t")
        try:
            found = list(differences(shelf / name, int(code, 16), place, stores))
            shown = None if quiet and not found else minidump.describe(shelf / name, stores)
        except (OSError, subprocess.SubprocessError) as failure:
            found, shown = [str(failure)], name
        if shown:
            print(f"\n{step}\n{shown}")
        for difference in found:
            print(f"*** DIFFERS: {difference}")
        failed += bool(found)
    print(f"{len(lines) - failed} passed, {failed} failed")
    return 1 if failed or not lines else 0


if __name__ == "__main__":
    sys.exit(main())
