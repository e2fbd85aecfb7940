#!/usr/bin/python3
"""Shows what is in a minidump, as two independent readers see it: minidump.py DUMP PROGRAM_FOLDER...

obj2yaml lists the streams, lldb says where the process stopped. The program folders hold the images with their debug information.
"""
import collections
import pathlib
import re
import subprocess
import sys

FRAMES = 3          # shown
RAISING = ("throw_record.cpp", "throw_hook.cpp", "uncaught.cpp")  # how a throw and the end of a program become an exception
LONGEST_READ = 120  # s; a cold debugger on a busy machine takes a while

Stop = collections.namedtuple("Stop", "code thread function place")  # place: "file.cpp:line", empty when it is not known


def read_streams(path):
    """The stream types, in their order, and the whole text of obj2yaml."""
    text = subprocess.run(["obj2yaml-14", str(path)], stdin=subprocess.DEVNULL, capture_output=True, check=True, text=True,
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


def read_stops(path, folders):
    """Where the debugger sees the stopped thread: its frames from the innermost on."""
    images = ["-O", "settings set target.exec-search-paths " + " ".join(f'"{folder}"' for folder in folders)]
    text = subprocess.run(["lldb-14", "--no-lldbinit", "--batch", *images, "-c", str(path), "-o", "bt 12"], stdin=subprocess.DEVNULL,
                          capture_output=True, check=False, text=True, timeout=LONGEST_READ).stdout
    reason = re.search(r"thread #(\d+), stop reason = Exception (0x[0-9a-f]+)", text)
    if not reason:
        return []
    frames = re.findall(r"frame #\d+: 0x[0-9a-f]+(?: [^`\s]+)?(?:`([^\n]*?))?(?: at (\S+?:\d+)\S*)?$", text, re.M)
    return [Stop(int(reason[2], 16), int(reason[1]), function, place) for function, place in frames]


def short_name(function):
    return function.replace("(anonymous namespace)::", "").split("(")[0]


def describe(path, folders):
    """The whole view, as text. Fails with SubprocessError when the file is no minidump, or a reader takes too long."""
    streams, text = read_streams(path)
    stops = read_stops(path, folders)
    lines = [f"{path.name}, {path.stat().st_size} bytes", f"  streams    {' '.join(streams)}",
             f"  comment    {read_comment(text) or '(empty)'}"]
    if stops:
        lines.append(f"  stopped    by exception 0x{stops[0].code:08x}")
    else:
        lines.append("  stopped    (the debugger finds no exception)")
    for stop in [stop for stop in stops if stop.place and not stop.place.startswith(RAISING)][:FRAMES]:
        lines.append(f"  in         {short_name(stop.function)} at {stop.place}")
    return "\n".join(lines)


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    path = pathlib.Path(sys.argv[1])
    try:
        print(describe(path, sys.argv[2:]))
    except subprocess.CalledProcessError as failure:
        print(f"{path}: no minidump ({failure.stderr.strip()})", file=sys.stderr)
        return 1
    except (OSError, subprocess.TimeoutExpired) as failure:
        print(f"{path}: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
