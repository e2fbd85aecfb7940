#!/usr/bin/python3
"""The functions around each call that a library makes, as sweep/symbols.h wants them: names.py LIBRARY PDB

For each place behind a call one line: its address from the library's start, the function, and those that it was inlined into.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile


def read(*command, text=None):
    return subprocess.run(command, input=text, stdout=subprocess.PIPE, check=True, text=True, timeout=120).stdout


def places_behind_calls(library):
    listing = re.findall(r"^ *([0-9a-f]+): *\t?\s*(\S+)", read("llvm-objdump-16", "-d", "--no-show-raw-insn", library), re.M)
    return [int(after, 16) for (_, mnemonic), (after, _) in zip(listing, listing[1:]) if mnemonic.startswith("call")]


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory() as folder:
        library = shutil.copy(sys.argv[1], folder)
        shutil.copy(sys.argv[2], folder)  # where the record in the library names it
        base = int(re.search(r"ImageBase: (\S+)", read("llvm-readobj-16", "--file-headers", library))[1], 16)
        places = places_behind_calls(pathlib.Path(library))
        # The place itself may belong to the next statement; the byte before it is the call's.
        named = read("llvm-symbolizer-16", f"--obj={library}", text="".join(f"0x{place - 1:x}\n" for place in places))
    for place, lines in zip(places, named.split("\n\n")):
        print(f"{place - base:x}", *lines.strip().split("\n")[::2], sep="\t")
    return 0


if __name__ == "__main__":
    sys.exit(main())
