#!/usr/bin/python3
"""Crashes guarded hosts in every way that the guard has to survive, and reads what they leave: crash_matrix.py BUILD_FOLDER [NAME...]

Each case is one process of crasher.exe, installed in the Wine prefix by scripts/stage, watched by a Windows parent for its whole exit
code. Its log is compared line by line, each dump is opened by obj2yaml and by lldb. The prefix is the build folder's, or the one that
CORVID_WSC_PREFIX names. Prints a line for each case, "N passed, M failed" at the end; the status is 0 when none failed.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import minidump  # noqa: E402
import symbol_store  # noqa: E402
from crash_cases import ALWAYS, CASES, SKIPPED, WAY_OUT  # noqa: E402

SUITE = "C:\\Program Files\\CORVID Software\\Corvid\\"
LONGEST_CASE = 180  # s
WINE_STREAMS = {"0xFFF0", "0x0"}  # its own, and an unused entry where there is no exception


def wine(program, *words):
    run = subprocess.run([ROOT / "scripts/wine", SUITE + program, *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, check=False, timeout=LONGEST_CASE)
    return run.stdout.decode("utf-8", "replace").replace("\r", "")


class Runner:
    def __init__(self, build):
        self.stores = [symbol_store.Store(path)
                       for path in [*(build / "stores/package").glob("*-symbols.zip"), build / "stores/standins"]]
        self.drive = pathlib.Path(os.environ.get("CORVID_WSC_PREFIX") or build / "prefix") / "drive_c"
        self.crashes = self.drive / "crashes"
        self.log_folder = self.drive / "ProgramData/CORVID Software/Corvid/log"

    def run(self, case):
        """Every difference from what the case says, as texts."""
        try:
            wine("centre.exe", *(case.centre or ["dumper", "write"]))
            if case.notices >= 0:
                wine("centre.exe", "driver", "start")
            return list(self.differences(case, *self.crash(case))) + list(self.notice_differences(case))
        except (OSError, subprocess.SubprocessError) as failure:
            return [str(failure)]
        finally:
            if case.notices >= 0:
                wine("centre.exe", "driver", "remove")

    def crash(self, case):
        """The folder of its log and what it printed."""
        words = case.words.split()
        folder = self.log_folder
        if case.own_folder:
            name = re.sub(r"\W+", "-", case.name)
            folder = self.crashes / name
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
            words = [word.replace("{folder}", f"C:\\crashes\\{name}") for word in words]
            if not any(word.startswith("/folder:") for word in words):
                words.append(f"/folder:C:\\crashes\\{name}")
        for old in [*folder.glob("*.mdmp"), folder / "wsc.log"]:
            old.unlink(missing_ok=True)
        program = ("centre.exe",) if words[0] == "run" else ("crasher.exe", "watch")
        return folder, wine(*program, *words)

    @staticmethod
    def notice_differences(case):
        if case.notices >= 0:
            status = wine("centre.exe", "driver", "status")
            if not re.search(rf" {case.notices}$", status.strip()):
                yield f"the driver had to get {case.notices} notices:\n{status}"

    def differences(self, case, folder, output):
        ended = re.search(r"^(?:process (\d+)\nexit|result) 0x([0-9a-f]{8})$", output, re.M)
        exits = case.exit if isinstance(case.exit, set) else {case.exit}
        if not ended or int(ended[2], 16) not in exits or "hung" in output:
            yield f"the exit code had to be {', '.join(f'0x{code:08x}' for code in exits)}:\n{output}"
            return
        if case.printed not in output or ("other filter" in output) != ("other filter" in case.printed):
            yield f"it had to print {case.printed!r}:\n{output}"
        if ("Unhandled" in output) == (case.handled or case.exit == 0):
            yield f"the system's own crash handling must {'not ' if case.handled or case.exit == 0 else ''}be reached:\n{output}"
        log = self.read_log(folder / "wsc.log", ended[1])
        if len(log) != len(case.log) or not all(map(self.agrees, case.log, log)):
            yield "the log had to be\n    " + "\n    ".join(case.log) + "\n  and was\n    " + "\n    ".join(log)
        found = folder.rglob("*.mdmp") if case.own_folder else folder.glob("*.mdmp")  # the tour keeps its dumps below the log folder
        dumps = sorted(found, key=lambda path: path.stat().st_mtime_ns)
        if len(dumps) != len(case.dumps):
            yield f"there had to be {len(case.dumps)} dumps, not {len(dumps)}"
        for path, comment in zip(dumps, case.dumps):
            yield from self.dump_differences(case, folder, path, comment)

    @staticmethod
    def agrees(wanted, line):
        return line == wanted or (wanted is WAY_OUT and re.fullmatch(wanted, line))

    @staticmethod
    def read_log(path, process):
        """The crash guard's records of the process, or of all, "level text"."""
        if not path.exists():
            return []
        lines = re.findall(r"^\S+ \S+ +(\d+) +\d+ (\w+) +crashguard +(.*?)\r?$", path.read_text("utf-8", "replace"), re.M)
        return [f"{level} {text}" for number, level, text in lines if process in (None, number)]

    def dump_differences(self, case, folder, path, comment):
        if not re.fullmatch(case.name_of_dump, path.name) or path.parent != folder / case.below:
            yield f"the dump is called {path}"
        streams, text = minidump.read_streams(path)
        wanted = ALWAYS | {"Memory64List" if case.full else "MemoryList"} | ({"Exception"} if case.exception else set())
        if set(streams) - WINE_STREAMS != wanted or len(streams) != len(set(streams)):
            yield f"streams {streams}, wanted {sorted(wanted)}"
        if minidump.read_comment(text) != comment:
            yield f"comment {minidump.read_comment(text)!r}, wanted {comment!r}"
        if not case.exception:
            return
        code, thread = minidump.read_exception(text) or (0, 0)
        if code != case.code or thread not in minidump.read_threads(text):
            yield f"exception 0x{code:08x} of thread {thread:x}"
        stops = minidump.read_stops(path, text, self.stores)
        if not stops or stops[0].code != case.code:
            yield f"the debugger sees {stops}"
        elif case.function:
            yield from self.stack_differences(case, [f"{stop.function} at {stop.place}" for stop in minidump.own_stops(stops)])

    @staticmethod
    def stack_differences(case, stack):
        """The innermost frame of ours is that of the fault; the whole stack is known when it ends in the program's entry."""
        if not stack or not re.fullmatch(case.function, stack[0]):
            yield f"the debugger had to see {case.function} innermost: {stack}"
            return
        if not re.fullmatch(case.outermost, stack[-1]):
            yield f"the debugger had to see {case.outermost} outermost: {stack}"
        if case.throws and "throw " not in Runner.source_line(stack[0]):
            yield f"the debugger had to see a line that throws, not {Runner.source_line(stack[0])!r}"

    @staticmethod
    def source_line(frame):
        name, number = frame.rsplit(" at ", 1)[1].split(":")
        found = [*ROOT.glob(f"src/*/{name}"), *ROOT.glob(f"standins/*/{name}")]
        return found[0].read_text("utf-8").splitlines()[int(number) - 1].strip()


def main():
    names = {case.name for case in CASES}
    unknown = [name for name in sys.argv[2:] if name not in names]
    if len(sys.argv) < 2 or unknown:
        print(f"there is no case {unknown[0]!r}" if unknown else __doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    if subprocess.run([ROOT / "scripts/stores", build], stdin=subprocess.DEVNULL, check=False).returncode:
        return 2
    runner = Runner(build)
    if not runner.log_folder.is_dir():
        print(f"the suite is not installed in {runner.drive}; run scripts/stage", file=sys.stderr)
        return 2
    passed = failures = 0
    try:
        for case in CASES:
            if sys.argv[2:] and case.name not in sys.argv[2:]:
                continue
            wrong = runner.run(case)
            passed, failures = passed + (not wrong), failures + bool(wrong)
            print("FAILED " if wrong else "passed ", case.name, flush=True)
            for difference in wrong:
                print("  " + difference)
    finally:
        wine("centre.exe", "dumper", "write")
        wine("centre.exe", "script", "CavmStart")
        shutil.rmtree(runner.crashes, ignore_errors=True)
    for name, reason in SKIPPED:
        print(f"skipped  {name}: {reason}")
    print(f"{passed} passed, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
