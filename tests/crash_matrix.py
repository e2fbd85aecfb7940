#!/usr/bin/python3
"""Plays the crash matrix and has two independent readers open every dump that it leaves: crash_matrix.py BUILD_FOLDER [CASE...]

matrix.exe, installed by scripts/stage, plays the cases, compares what they leave, and lists in dumps.tsv what must be seen in each dump
by obj2yaml and by lldb. CORVID_WSC_BITS and CORVID_WSC_PREFIX say where. Prints a line for each case, "N passed, M failed" at the end;
the status is 0 when none failed.
"""
import concurrent.futures
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import machine  # noqa: E402
import minidump  # noqa: E402

ALWAYS = {"SystemInfo", "ThreadList", "ModuleList", "MiscInfo", "CommentW"}
WINE_STREAMS = {"0xFFF0", "0x0"}  # its own, and an unused entry where there is no exception


class Reader:
    def __init__(self, build, shelf, errors):
        self.stores = [minidump.Store(path)
                       for path in [*(build / "stores/package").glob("*-symbols.zip"), build / "stores/standins"]]
        self.shelf, self.errors = shelf, errors

    def differences(self, case):
        """Every difference from what the list says, as texts."""
        rows = [row for row in (line.split("\t") for line in (self.shelf / "dumps.tsv").read_text("utf-8").splitlines()) if row[0] == case]
        if not rows:
            yield "it is not in the list of dumps"
            return
        said = self.errors.read_text("utf-8", "replace").replace("\r", "").split(f"\ncase {case}\n", 1)[1]
        said = re.split(r"^case ", said, 1, re.M)[0]
        if ("Unhandled" in said) != (rows[0][1] == "reached"):
            yield f"the system's own crash handling must {'' if rows[0][1] == 'reached' else 'not '}be reached: {said}"
        for row in rows:
            if len(row) > 2:
                try:
                    yield from self.dump_differences(self.shelf / row[2].replace("\\", "/"), *row[3:])
                except (OSError, subprocess.SubprocessError) as failure:
                    yield str(failure)

    def dump_differences(self, path, code, comment, function, outermost, throws, memory):
        streams, text = minidump.read_streams(path)
        exception = code != "-"
        full = memory == "full" or (memory == "any" and "Memory64List" in streams)
        wanted = ALWAYS | {"Memory64List" if full else "MemoryList"} | ({"Exception"} if exception else set())
        if set(streams) - WINE_STREAMS != wanted or len(streams) != len(set(streams)):
            yield f"streams {streams}, wanted {sorted(wanted)}"
        if minidump.read_comment(text) != comment:
            yield f"comment {minidump.read_comment(text)!r}, wanted {comment!r}"
        if not exception:
            return
        found, thread = minidump.read_exception(text) or (0, 0)
        if found != int(code, 16) or thread not in minidump.read_threads(text):
            yield f"exception 0x{found:08x} of thread {thread:x}"
        stops = minidump.read_stops(path, text, self.stores)
        if not stops or stops[0].code != int(code, 16):
            yield f"the debugger sees {stops}"
        elif function != "-":
            yield from self.stack_differences([f"{stop.function} at {stop.place}" for stop in minidump.own_stops(stops)],
                                              function, outermost, throws == "throws")

    def stack_differences(self, stack, function, outermost, throws):
        """The innermost frame of ours is that of the fault; the whole stack is known when it ends in the program's entry."""
        if not stack or not re.fullmatch(function, stack[0]):
            yield f"the debugger had to see {function} innermost: {stack}"
            return
        if not re.fullmatch(outermost, stack[-1]):
            yield f"the debugger had to see {outermost} outermost: {stack}"
        if throws and "throw " not in self.source_line(stack[0]):
            yield f"the debugger had to see a line that throws, not {self.source_line(stack[0])!r}"

    @staticmethod
    def source_line(frame):
        name, number = frame.rsplit(" at ", 1)[1].split(":")
        found = [*ROOT.glob(f"src/*/{name}"), *ROOT.glob(f"standins/*/{name}")]
        return found[0].read_text("utf-8").splitlines()[int(number) - 1].strip()


def played(program, cases, errors):
    """Each case and what the program says of it, as soon as it is played."""
    run = subprocess.Popen([ROOT / "scripts/wine", program, "run", *cases], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=errors,
                           text=True, encoding="utf-8")
    said = []
    for line in map(str.rstrip, run.stdout):
        ended = re.fullmatch(r"\[(       OK |  FAILED  )\] matrix\.(.*) \(\d+ ms\)", line)
        if ended:
            yield ended[2], said if "FAILED" in ended[1] else []
        said = [] if ended or line.startswith("[ RUN") else said + [line]
    if run.wait() not in (0, 1) or not said or not re.fullmatch(r"\d+ passed, \d+ failed", said[-1]):
        yield "the whole matrix", [f"it ended with status {run.returncode}", *said]


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    if subprocess.run([ROOT / "scripts/stores", build], stdin=subprocess.DEVNULL, check=False).returncode:
        return 2
    suite, log_folder = machine.installed()
    if not (suite / "matrix.exe").is_file():
        print(f"the suite is not installed in {suite}; run scripts/stage", file=sys.stderr)
        return 2
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(1) as pool:
        errors = pathlib.Path(folder) / "errors.txt"
        errors.write_text("\n")
        reader = Reader(build, log_folder / "matrix", errors)
        with errors.open("a") as stream:
            waiting = [(case, said, pool.submit(lambda name=case: list(reader.differences(name))))
                       for case, said in played(suite / "matrix.exe", sys.argv[2:], stream)]
        for case, said, seen in waiting:
            wrong = said + seen.result()
            passed, failed = passed + (not wrong), failed + bool(wrong)
            print("FAILED " if wrong else "passed ", case, flush=True)
            for difference in wrong:
                print("  " + difference)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
