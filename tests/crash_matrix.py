#!/usr/bin/python3
"""Crashes guarded hosts in every way that the guard has to survive, and reads what they leave: crash_matrix.py BUILD_FOLDER [NAME...]

Each case is one process of crasher.exe, installed in the Wine prefix by scripts/stage, watched by a Windows parent for its whole exit
code. Its log is compared line by line, each dump is opened by obj2yaml and by lldb. Prints a line for each case, "N passed, M failed"
at the end; the status is 0 when none failed.
"""
import dataclasses
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import minidump  # noqa: E402

SUITE = "C:\\Program Files\\CORVID Software\\Corvid\\"
LONGEST_CASE = 180  # s

INSTALLED = ["info CrashGuard global exception handler installed",
             "info CrashGuard initialized successfully, external dumping enabled"]
INSTALLED_ALONE = [INSTALLED[0], "info CrashGuard initialized successfully, only internal dumping available"]
TWICE = ["warning Attempting to install crashguard twice, ignored."]
LIMITED = ["debug CrashHandler dump limit reached."]
UNINSTALLED = ["info CrashGuard global exception handler uninstalled"]
ENTERED = ["debug Entering TopLevelExceptionFilter..."]
WAY_OUT = r"error Failed to start process dumper at 'C:\\nowhere\\cvDump32\.exe' due to error: [23]"
BUSY = "error Attempted to WriteDump while another operation is already in progress"
SEH = "critical Failed to write minidump, SEH exception encountered"

BY_DUMPER = ""
IN_PROCESS = "Dumped by CrashHandler"
OF_THROW = "Cause: VectoredExceptionHandler"

ALWAYS = {"SystemInfo", "ThreadList", "ModuleList", "MiscInfo", "CommentW"}
WINE_STREAMS = {"0xFFF0", "0x0"}  # its own, and an unused entry where there is no exception
AV, THROWN, FATAL_EXIT = 0xC0000005, 0xE06D7363, 0x40000015


def failed(status):
    return f"critical Minidump generation failed with error: {status}"


def created(code):
    return f"debug Minidump created successfully. Exception code is: {code:x}"


@dataclasses.dataclass
class Case:
    name: str
    words: str                     # the case of crasher.exe and its options
    exit: object                   # the whole exit code, or those that are possible
    log: list                      # the crash guard's records
    dumps: list                    # the comment of each dump, in the order in which they were written
    code: int = AV                 # in each dump
    function: str = ""             # in which the debugger sees the thread, as a pattern; empty: not looked at
    printed: str = "install 0"
    centre: list = dataclasses.field(default_factory=list)  # beforehand
    notices: int = -1              # fatal-dump notices that the self-protection driver gets; -1: there is no driver
    full: bool = False             # the dump has the full memory
    handled: bool = False          # the process ends before the system's own crash handling
    exception: bool = True         # the dump has an exception stream
    name_of_dump: str = r"unp\d+\.mdmp"


WRITE = r"crasher::WriteToNull.* at faults\.cpp"
MISSING = "/dumper:C:\\nowhere"
FALLBACK = [WAY_OUT, failed(7), created(AV)]

CASES = [
    Case("access violation", "access-violation", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER], function=WRITE),
    Case("access violation in another thread, not limited", "other-thread /limit:0", AV, INSTALLED + ENTERED + [created(AV)],
         [BY_DUMPER], function=WRITE),
    Case("division by zero", "division", 0xC0000094, INSTALLED + ENTERED + [created(0xC0000094)], [BY_DUMPER], 0xC0000094,
         r"DivisionByZero.* at faults\.cpp"),
    Case("illegal instruction", "illegal-instruction", 0xC000001D, INSTALLED + ENTERED + [created(0xC000001D)], [BY_DUMPER],
         0xC000001D, r"IllegalInstruction.* at faults\.cpp"),
    Case("breakpoint", "breakpoint", 0x80000003, INSTALLED + ENTERED + [created(0x80000003)], [BY_DUMPER], 0x80000003,
         r"Breakpoint.* at faults\.cpp"),
    # Wine has no stack left for its own handling afterwards and ends the process with 0.
    Case("stack overflow, by the dumper", "stack-overflow", {0, 0xC00000FD}, INSTALLED + [created(0xC00000FD)], [BY_DUMPER],
         0xC00000FD, r"FillStack.* at faults\.cpp"),
    Case("stack overflow, in-process", f"stack-overflow {MISSING}", {0, 0xC00000FD},
         INSTALLED_ALONE + [WAY_OUT, failed(7), created(0xC00000FD)], [IN_PROCESS], 0xC00000FD, r"FillStack.* at faults\.cpp",
         "install 1"),
    Case("abort", "abort", FATAL_EXIT, INSTALLED + ENTERED + [created(FATAL_EXIT)], [BY_DUMPER], FATAL_EXIT, r"Abort.* at faults\.cpp"),
    Case("uncaught C++ exception", "uncaught", THROWN, INSTALLED + ENTERED + [created(THROWN)], [BY_DUMPER], THROWN,
         r"(ThrowUncaught|UncaughtException).* at faults\.cpp"),
    Case("pure virtual call", "pure-virtual", FATAL_EXIT, INSTALLED + ENTERED + [created(FATAL_EXIT)], [BY_DUMPER], FATAL_EXIT,
         r"PureVirtualCall.* at faults\.cpp"),
    Case("a second thread crashes meanwhile", "two-threads", AV,
         INSTALLED + ENTERED + [created(AV)] + ENTERED + ["error Multiple calls to TopLevelExceptionFilter detected."], [BY_DUMPER],
         function=WRITE),
    Case("a crash in an event handler", "in-handler", AV, INSTALLED + ENTERED + [SEH], [BY_DUMPER], function=WRITE),
    Case("a crash in an event handler, in-process", f"in-handler {MISSING}", AV,
         INSTALLED_ALONE + ENTERED + [WAY_OUT, failed(7), SEH], [IN_PROCESS], function=WRITE, printed="install 1"),
    Case("an event handler that throws", "throwing-handler", AV, INSTALLED + ENTERED + [SEH], [BY_DUMPER], function=WRITE),
    Case("a crash in a writer that nobody guards", "in-writer", AV, INSTALLED + ENTERED + [BUSY, failed(8), BUSY], [IN_PROCESS],
         exception=False, name_of_dump="asked.mdmp"),
    Case("the dumper is missing", f"access-violation {MISSING}", AV, INSTALLED_ALONE + ENTERED + FALLBACK, [IN_PROCESS],
         function=WRITE, printed="install 1"),
    Case("the dumper ends with 3", "access-violation", AV, INSTALLED + ENTERED + [failed(3), created(AV)], [IN_PROCESS], function=WRITE,
         centre=["dumper", "exit", "3"]),
    Case("the dumper writes and ends with 3", "access-violation", AV, INSTALLED + ENTERED + [failed(3), created(AV)],
         [BY_DUMPER, IN_PROCESS], function=WRITE, centre=["dumper", "write", "3"]),
    Case("the dumper crashes", "access-violation", AV, INSTALLED + ENTERED + [failed(-1073741819), created(AV)], [IN_PROCESS],
         function=WRITE, centre=["dumper", "crash"]),
    Case("the dump folder was removed", "folder-removed", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER], function=WRITE),
    Case("no dump file can be created", f"file-refused {MISSING}", AV, INSTALLED_ALONE + ENTERED + [WAY_OUT, failed(7)], [],
         printed="install 1"),
    Case("the dump folder does not exist at install", "access-violation /folder:{folder}\\missing", AV, [], [], printed="install 3"),
    Case("the filter is locked against replacement", "filter-replaced", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER],
         function=WRITE, printed="install 0\nreplaced 0"),
    Case("the filter is replaced when it is not locked", "filter-replaced /flags:300", AV, INSTALLED, [],
         printed="install 0\nreplaced 1\nother filter"),
    Case("wsc.dll is freed", "unloaded", AV, INSTALLED + UNINSTALLED, [],
         printed="run 0x00000000\nloaded 0\nprevious 1\nother filter"),
    Case("four runs of wsc.dll without a thread-local slot", "no-slot", 0,
         INSTALLED + [created(THROWN)] + (TWICE + [created(THROWN)]) * 2 + TWICE + LIMITED + UNINSTALLED, [OF_THROW] * 3, THROWN,
         printed="run 0x00000057"),
    Case("the same context twice", "microsoft-fatal", THROWN,
         INSTALLED + [created(THROWN)] + ENTERED + ["debug Exception was already dumped, ignoring..."], [OF_THROW], THROWN,
         r"MicrosoftFatal.* at faults\.cpp"),
    Case("four fatal errors with a limit of three", "four-fatals", 0,
         INSTALLED + [created(THROWN)] * 3 + LIMITED + UNINSTALLED, [OF_THROW] * 3, THROWN,
         r"(ThrowFatal|FourFatals).* at faults\.cpp"),
    Case("fatal errors without the vectored handler", "four-fatals /flags:201", 0, INSTALLED + UNINSTALLED, []),
    Case("a service account", "access-violation /pretend:service", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER], function=WRITE,
         handled=True),
    Case("shutdown", "access-violation /pretend:shutdown", AV,
         INSTALLED + ENTERED + [created(AV), "info Saved a crash when system is shutting down."], [BY_DUMPER], function=WRITE,
         handled=True),
    Case("installed twice, uninstalled twice", "uninstalled", AV,
         INSTALLED + TWICE + UNINSTALLED, [],
         printed="install 0 2 uninstall 1 0\nother filter"),
    Case("installed again", "installed-again", AV, INSTALLED + UNINSTALLED + INSTALLED + ENTERED + [created(AV)], [BY_DUMPER],
         function=WRITE),
    Case("full memory, by the dumper", "access-violation /ratio:1", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER],
         function=WRITE, full=True),
    Case("CrashNow", "crash-now", AV, INSTALLED + ["warning User-initiated crash commencing"] + ENTERED + [created(AV)], [BY_DUMPER],
         function=r"crashguard::CrashNow\(\) at user_crash\.cpp"),
    Case("CrashAfter", "crash-after", AV,
         INSTALLED + ["warning User-initiated crash in 300 ms", "warning User-initiated crash commencing"] + ENTERED + [created(AV)],
         [BY_DUMPER], function=r"crashguard::CrashNow\(\) at user_crash\.cpp"),
    Case("CrashNow during a run", "during-run", AV,
         INSTALLED + ["warning User-initiated crash commencing"] + ENTERED + [created(AV)], [BY_DUMPER],
         function=r"crashguard::CrashNow\(\) at user_crash\.cpp", printed="", notices=1),
    Case("CrashNow outside of runs", "crash-now", AV, INSTALLED + ["warning User-initiated crash commencing"] + ENTERED + [created(AV)],
         [BY_DUMPER], notices=0),
]

SKIPPED = [
    ("heap corruption", "Wine's heap ends the process without an exception that a filter sees, or not at all"),
    ("fail-fast", "the system ends the process without asking anybody, on Windows as well"),
]

# Cases that run the module have its own log folder; the others one of their own.
IN_LOG_FOLDER = {"unloaded", "no-slot", "during-run"}


def wine(program, *words):
    return subprocess.run([ROOT / "scripts/wine", SUITE + program, *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, timeout=LONGEST_CASE).stdout.decode("utf-8", "replace").replace("\r", "")


class Runner:
    def __init__(self, build):
        self.images = [build / "standins", build / "dist"]
        drive = build / "prefix/drive_c"
        self.drive = drive
        self.log_folder = drive / "ProgramData/CORVID Software/Corvid/log"

    def run(self, case):
        """Every difference from what the case says, as texts."""
        words = case.words.split()
        folder = self.log_folder
        if words[0] not in IN_LOG_FOLDER:
            name = re.sub(r"\W+", "-", case.name)
            folder = self.drive / "crashes" / name
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
            words = [word.replace("{folder}", f"C:\\crashes\\{name}") for word in words]
            if not any(word.startswith("/folder:") for word in words):
                words.append(f"/folder:C:\\crashes\\{name}")
        for old in [*folder.glob("*.mdmp"), folder / "wsc.log"]:
            old.unlink(missing_ok=True)
        wine("centre.exe", *(case.centre or ["dumper", "write"]))
        if case.notices < 0:
            return list(self.differences(case, folder, wine("crasher.exe", "watch", *words)))
        wine("centre.exe", "driver", "start")
        wrong = list(self.differences(case, folder, wine("crasher.exe", "watch", *words)))
        status = wine("centre.exe", "driver", "status")
        wine("centre.exe", "driver", "remove")
        if not re.search(rf" {case.notices}$", status.strip()):
            wrong.append(f"the driver had to get {case.notices} notices:\n{status}")
        return wrong

    def differences(self, case, folder, output):
        ended = re.search(r"^process (\d+)\nexit 0x([0-9a-f]{8})$", output, re.M)
        exits = case.exit if isinstance(case.exit, set) else {case.exit}
        if not ended or int(ended[2], 16) not in exits or "hung" in output:
            yield f"the exit code had to be {', '.join(f'0x{code:08x}' for code in exits)}:\n{output}"
            return
        if case.printed not in output:
            yield f"it had to print {case.printed!r}:\n{output}"
        if ("Unhandled" in output) == (case.handled or case.exit == 0):
            yield f"the system's own crash handling must {'not ' if case.handled or case.exit == 0 else ''}be reached:\n{output}"
        log = self.read_log(folder / "wsc.log", int(ended[1]))
        if len(log) != len(case.log) or not all(map(self.agrees, case.log, log)):
            yield "the log had to be\n    " + "\n    ".join(case.log) + "\n  and was\n    " + "\n    ".join(log)
        dumps = sorted(folder.rglob("*.mdmp"), key=lambda path: path.stat().st_mtime_ns)
        if len(dumps) != len(case.dumps):
            yield f"there had to be {len(case.dumps)} dumps, not {len(dumps)}"
        for path, comment in zip(dumps, case.dumps):
            yield from self.dump_differences(case, path, comment)

    @staticmethod
    def agrees(wanted, line):
        return line == wanted or (wanted is WAY_OUT and re.fullmatch(wanted, line))

    @staticmethod
    def read_log(path, process):
        """The crash guard's records of the process, "level text"."""
        if not path.exists():
            return []
        lines = re.findall(r"^\S+ \S+ +(\d+) +\d+ (\w+) +crashguard +(.*?)\r?$", path.read_text("utf-8", "replace"), re.M)
        return [f"{level} {text}" for number, level, text in lines if int(number) == process]

    def dump_differences(self, case, path, comment):
        if not re.fullmatch(case.name_of_dump, path.name):
            yield f"the dump is called {path.name}"
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
        stops = minidump.read_stops(path, self.images)
        if not stops or stops[0].code != case.code:
            yield f"the debugger sees {stops}"
        elif case.function and not any(re.search(case.function, f"{stop.function} at {stop.place}") for stop in stops):
            yield f"the debugger does not see {case.function}: {stops}"


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    runner = Runner(pathlib.Path(sys.argv[1]).resolve())
    passed = failures = 0
    for case in CASES:
        if sys.argv[2:] and case.name not in sys.argv[2:]:
            continue
        wrong = runner.run(case)
        passed, failures = passed + (not wrong), failures + bool(wrong)
        print("FAILED " if wrong else "passed ", case.name, flush=True)
        for difference in wrong:
            print("  " + difference)
    wine("centre.exe", "dumper", "write")
    shutil.rmtree(runner.drive / "crashes", ignore_errors=True)
    for name, reason in SKIPPED:
        print(f"skipped  {name}: {reason}")
    print(f"{passed} passed, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
