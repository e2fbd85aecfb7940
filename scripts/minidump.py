#!/usr/bin/python3
"""Shows what is in a minidump, as two independent readers see it: minidump.py DUMP STORE...

obj2yaml lists the streams, lldb says where the process stopped. A store is a symbol store's folder or the archive of one; the images
and program databases of the dump are taken from there alone.
"""
import collections
import itertools
import pathlib
import re
import subprocess
import sys
import tempfile
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from triage_lib.symbol_files import RAISING, BadImage, Store, image_key, plain, read_image  # noqa: E402

DEEPEST = 64        # frames that are looked at; a stack overflow has tens of thousands
FRAME = '"frame <{${function.name}}> <{${line.file.basename}:${line.number}}>\\n"'
LONGEST_READ = 120  # s; a cold debugger on a busy machine takes a while

Stop = collections.namedtuple("Stop", "code thread function place")  # place: "file.cpp:line", empty when it is not known
Module = collections.namedtuple("Module", "name key")


def read_streams(path):
    """The stream types, in their order, and the whole text of obj2yaml."""
    text = subprocess.run(["obj2yaml-16", str(path)], stdin=subprocess.DEVNULL, capture_output=True, check=True, text=True,
                          timeout=LONGEST_READ).stdout
    return re.findall(r"^  - Type: +(\S+)", text, re.M), text


def read_comment(text):
    """The comment stream in the text of obj2yaml; None without one."""
    found = re.search(r"^  - Type: +CommentW\n +Content: +'?([0-9A-Fa-f]+)", text, re.M)
    return bytes.fromhex(found[1]).decode("utf-16-le").rstrip("\0") if found else None


def read_exception(text):
    """(code, thread id) in the text of obj2yaml; None without an exception stream."""
    found = re.search(r"^  - Type: +Exception\n +Thread ID: +(\S+)\n(?:.*\n)*? +Exception Code: +(\S+)", text, re.M)
    return (int(found[2], 16), int(found[1], 16)) if found else None


def read_threads(text):
    section = text.split("ThreadList", 1)[-1].split("  - Type:", 1)[0]
    return {int(value, 16) for value in re.findall(r"Thread Id: +(\S+)", section)}


def read_modules(text):
    """The images of the process in the text of obj2yaml."""
    section = text.split("ModuleList", 1)[-1].split("  - Type:", 1)[0]
    found = re.findall(r"Size of Image: +(\S+)\n(?: +Checksum:.*\n)? +Time Date Stamp: +(\S+)\n +Module Name: +'?(.*?)'?$", section, re.M)
    return [Module(name.rsplit("\\", 1)[-1], image_key(int(time), int(size, 16))) for size, time, name in found]


def read_first(stores, name, key):
    return next(filter(None, (store.read(name, key) for store in stores)), None)


def lay_out(modules, stores, folder):
    """The images that the stores have, by name, time and size, each with its program database beside it, where the debugger looks."""
    for module in modules:
        content = read_first(stores, *module)
        if not content:
            continue
        (folder / module.name).write_bytes(content)
        record = read_image(content).record
        database = record and read_first(stores, *record)
        if database:
            (folder / record.name).write_bytes(database)


def read_stops(path, text, stores):
    """Where the debugger sees the stopped thread: its frames from the innermost on. It has nothing but what the stores hold."""
    with tempfile.TemporaryDirectory() as folder:
        lay_out(read_modules(text), stores, pathlib.Path(folder))
        output = subprocess.run(["lldb-16", "--no-lldbinit", "--batch", "-O", f'settings set target.exec-search-paths "{folder}"',
                                 "-O", f"settings set frame-format {FRAME}", "-c", str(path), "-o", f"bt {DEEPEST}"],
                                stdin=subprocess.DEVNULL, capture_output=True, check=False, text=True, timeout=LONGEST_READ).stdout
    reason = re.search(r"thread #(\d+), stop reason = Exception (0x[0-9a-f]+)", output)
    if not reason:
        return []
    frames = re.findall(r"^ *\*? *frame <(.*)> <(.*)>$", output, re.M)
    return [Stop(int(reason[2], 16), int(reason[1]), plain(function), place) for function, place in frames]


def own_stops(stops):
    """The frames with known places, but for a throw's own machinery; those that repeat each other are one."""
    named = [stop for stop in stops if stop.function]
    return [stop for stop, _ in itertools.groupby(named) if stop.place and not stop.place.startswith(RAISING)]


def describe(path, stores):
    """The whole view, as text. Fails with SubprocessError when the file is no minidump, or a reader takes too long."""
    streams, text = read_streams(path)
    stops = read_stops(path, text, stores)
    lines = [f"{path.name}, {path.stat().st_size} bytes", f"  streams    {' '.join(streams)}",
             f"  comment    {read_comment(text) or '(empty)'}"]
    if stops:
        lines.append(f"  stopped    by exception 0x{stops[0].code:08x}")
    else:
        lines.append("  stopped    (the debugger finds no exception)")
    own = own_stops(stops)
    lines += [f"  in         {stop.function} at {stop.place}" for stop in own]
    if stops and not own:
        lacking = [f"{module.name} {module.key}" for module in read_modules(text)
                   if module.name.lower() == "wsc.dll" and not read_first(stores, *module)]
        lines.append(f"  in         (no function with symbols{'; the stores lack ' if lacking else ''}{', '.join(lacking)})")
    return "\n".join(lines)


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    path = pathlib.Path(sys.argv[1])
    stores = []
    for store in sys.argv[2:]:
        try:
            stores.append(Store(store))
        except (OSError, zipfile.BadZipFile) as failure:
            print(f"{store}: no symbol store ({getattr(failure, 'strerror', None) or failure})", file=sys.stderr)
            return 1
    try:
        print(describe(path, stores))
    except subprocess.CalledProcessError as failure:
        print(f"{path}: no minidump ({failure.stderr.strip()})", file=sys.stderr)
        return 1
    except BadImage as failure:
        print(f"{path}: an image in the stores {failure}", file=sys.stderr)
        return 1
    except (OSError, RuntimeError, zipfile.BadZipFile, subprocess.TimeoutExpired) as failure:
        print(f"{path}: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
