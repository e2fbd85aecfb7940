"""The ways in which crash_matrix.py crashes a guarded host, and what each has to leave."""
import dataclasses

INSTALLED = ["info CrashGuard global exception handler installed",
             "info CrashGuard initialized successfully, external dumping enabled"]
INSTALLED_ALONE = [INSTALLED[0], "info CrashGuard initialized successfully, only internal dumping available"]
TWICE = ["warning Attempting to install crashguard twice, ignored."]
IGNORED = ["debug Exception was already dumped, ignoring..."]
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
    function: str = ""             # the innermost frame of ours that the debugger sees, as a pattern; empty: none is looked at
    printed: str = "install 0"
    centre: list = dataclasses.field(default_factory=list)  # beforehand
    notices: int = -1              # fatal-dump notices that the self-protection driver gets; -1: there is no driver
    full: bool = False             # the dump has the full memory
    handled: bool = False          # the process ends before the system's own crash handling
    exception: bool = True         # the dump has an exception stream
    name_of_dump: str = r"unp\d+\.mdmp"
    own_folder: bool = True        # for log and dumps; the module itself takes the suite's log folder
    outermost: str = r"main at main\.cpp:\d+"  # and the outermost one
    throws: bool = False           # the innermost frame stands on a line that throws
    below: str = "."               # the folder of the dumps, from that of the case


def fault(function):
    return rf"crv::standins::crasher::{function} at faults\.cpp:\d+"


WRITE = fault("WriteToNull")
IN_THREAD = r".*thread.*"  # the library's own function that a thread starts in
CRASH_NOW = r"crv::crashguard::CrashNow at user_crash\.cpp:\d+"
THROWING = fault("ThrowFatal")
MISSING = "/dumper:C:\\nowhere"
FALLBACK = [WAY_OUT, failed(7), created(AV)]

CASES = [
    Case("access violation", "access-violation", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER], function=WRITE),
    Case("access violation in another thread, not limited", "other-thread /limit:0", AV, INSTALLED + ENTERED + [created(AV)],
         [BY_DUMPER], function=WRITE, outermost=WRITE),
    Case("division by zero", "division", 0xC0000094, INSTALLED + ENTERED + [created(0xC0000094)], [BY_DUMPER], 0xC0000094,
         fault("DivisionByZero")),
    Case("illegal instruction", "illegal-instruction", 0xC000001D, INSTALLED + ENTERED + [created(0xC000001D)], [BY_DUMPER],
         0xC000001D, fault("IllegalInstruction")),
    Case("breakpoint", "breakpoint", 0x80000003, INSTALLED + ENTERED + [created(0x80000003)], [BY_DUMPER], 0x80000003,
         fault("Breakpoint")),
    # Wine has no stack left for its own handling afterwards and ends the process with 0.
    Case("stack overflow, by the dumper", "stack-overflow", {0, 0xC00000FD}, INSTALLED + [created(0xC00000FD)], [BY_DUMPER],
         0xC00000FD, fault("FillStack"), outermost=fault("FillStack")),
    Case("stack overflow, in-process", f"stack-overflow {MISSING}", {0, 0xC00000FD},
         INSTALLED_ALONE + [WAY_OUT, failed(7), created(0xC00000FD)], [IN_PROCESS], 0xC00000FD, fault("FillStack"),
         "install 1", outermost=fault("FillStack")),
    Case("stack overflow, a log library and a handler that raise", f"stack-overflow /log:raises /handler:raises {MISSING}",
         {0, 0xC00000FD}, INSTALLED_ALONE + [WAY_OUT, failed(7), created(0xC00000FD)], [IN_PROCESS], 0xC00000FD,
         fault("FillStack"), "install 1\nthe handler went on", outermost=fault("FillStack")),
    Case("stack overflow, a crash in the log library", "stack-overflow /log:faults", {0, 0xC00000FD}, INSTALLED, [BY_DUMPER],
         0xC00000FD, fault("FillStack"), outermost=fault("FillStack")),
    Case("stack overflow, a crash in an event handler", "stack-overflow /handler:faults", {0, 0xC00000FD}, INSTALLED + [SEH],
         [BY_DUMPER], 0xC00000FD, fault("FillStack"), outermost=fault("FillStack")),
    Case("abort", "abort", FATAL_EXIT, INSTALLED + ENTERED + [created(FATAL_EXIT)], [BY_DUMPER], FATAL_EXIT, fault("Abort")),
    Case("uncaught C++ exception", "uncaught", THROWN, INSTALLED + ENTERED + [created(THROWN)], [BY_DUMPER], THROWN,
         fault("ThrowUncaught"), throws=True),
    # The runtime's own frames come with nothing that the debugger unwinds by, and hide the frame that called them.
    Case("pure virtual call", "pure-virtual", FATAL_EXIT, INSTALLED + ENTERED + [created(FATAL_EXIT)], [BY_DUMPER], FATAL_EXIT,
         r"crv::standins::crasher::Run at main\.cpp:\d+"),
    Case("a second thread crashes meanwhile", "two-threads", AV,
         INSTALLED + ENTERED + [created(AV)] + ENTERED + ["error Multiple calls to TopLevelExceptionFilter detected."], [BY_DUMPER],
         function=WRITE),
    Case("a crash in an event handler", "access-violation /handler:faults", AV, INSTALLED + ENTERED + [SEH], [BY_DUMPER], function=WRITE),
    Case("a crash in an event handler, in-process", f"access-violation /handler:faults {MISSING}", AV,
         INSTALLED_ALONE + ENTERED + [WAY_OUT, failed(7), SEH], [IN_PROCESS], function=WRITE, printed="install 1"),
    Case("an event handler that throws", "access-violation /handler:throws", AV, INSTALLED + ENTERED + [SEH], [BY_DUMPER], function=WRITE),
    Case("a crash in the log library", "access-violation /log:faults", AV, INSTALLED, [BY_DUMPER], function=WRITE),
    Case("a crash in the log library, in-process", f"access-violation /log:faults {MISSING}", AV, INSTALLED_ALONE, [IN_PROCESS],
         function=WRITE, printed="install 1"),
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
    Case("the dumper hangs and is ended", "dumper-ended", AV, INSTALLED + ENTERED + [failed(9), created(AV)], [IN_PROCESS], function=WRITE,
         centre=["dumper", "hang"]),
    Case("a run of the module ends meanwhile", "run-ends", AV, INSTALLED + ENTERED + TWICE + [created(AV)], [BY_DUMPER],
         printed="\nrun came back after the dump", function=WRITE, outermost=WRITE, own_folder=False),
    Case("the dump folder was removed", "folder-removed", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER], function=WRITE,
         below="removed/deeper"),
    Case("no dump file can be created", f"file-refused {MISSING}", AV, INSTALLED_ALONE + ENTERED + [WAY_OUT, failed(7)], [],
         printed="install 1"),
    Case("the dump folder does not exist at install", "access-violation /folder:{folder}\\missing", AV, [], [], printed="install 3"),
    Case("the filter is locked against replacement", "filter-replaced", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER],
         function=WRITE, printed="install 0\nreplaced 0"),
    Case("the filter is replaced when it is not locked", "filter-replaced /flags:300", AV, INSTALLED, [],
         printed="install 0\nreplaced 1\nother filter"),
    Case("wsc.dll is freed", "unloaded", AV, INSTALLED + UNINSTALLED, [],
         printed="run 0x00000000\nloaded 0\nprevious 1\nother filter", own_folder=False),
    Case("wsc.dll is freed, and a supervisor holds it", "unloaded /signal", 0x5B4, INSTALLED, [], printed="run 0x00000000\nheld",
         own_folder=False, handled=True),
    Case("wsc.dll is loaded and freed again and again", "loaded-often", 0, (INSTALLED + UNINSTALLED) * 11, [], printed="lost slots 0, pages 0",
         own_folder=False),
    Case("wsc.dll without a thread-local slot", "no-slot", 0, INSTALLED + [created(THROWN)] + UNINSTALLED, [OF_THROW], THROWN,
         printed="run 0x00000057", own_folder=False),
    Case("four runs of wsc.dll with wrong requests", "four-runs", 0,
         INSTALLED + [created(THROWN)] + (TWICE + [created(THROWN)]) * 2 + TWICE + LIMITED + UNINSTALLED, [OF_THROW] * 3, THROWN,
         r"crv::wsc::SelectAction at svc_mode\.cpp:\d+", "run 0x000000a0\n" * 4 + "error mode 0x8003", own_folder=False, throws=True),
    Case("a fatal error that nobody catches", "uncaught-fatal /limit:1", THROWN, INSTALLED + [created(THROWN)] + ENTERED + IGNORED,
         [OF_THROW], THROWN, THROWING, printed="install 0\nwritten\nwine: Unhandled", throws=True),
    Case("a fatal error that nobody catches, beyond the limit", "uncaught-fatal /limit:0", THROWN,
         INSTALLED + LIMITED + ENTERED + [created(THROWN)], [BY_DUMPER], THROWN, THROWING,
         printed="install 0\nwritten\nfatal written\nwine: Unhandled"),
    Case("caught fatal errors and another one that nobody catches", "last-fatal", THROWN,
         INSTALLED + [created(THROWN)] * 3 + LIMITED + ENTERED + [created(THROWN)], [OF_THROW] * 3 + [BY_DUMPER], THROWN, THROWING,
         "install 0\nsame place", throws=True),
    Case("no crash", "none", 0, INSTALLED + UNINSTALLED, []),
    Case("no crash, and a supervisor that holds the end", "none /signal", 0x5B4, INSTALLED, [], printed="install 0\nheld", handled=True),
    Case("the same context twice", "microsoft-fatal", THROWN,
         INSTALLED + [created(THROWN)] + ENTERED + IGNORED, [OF_THROW], THROWN,
         fault("MicrosoftFatal")),
    Case("four fatal errors with a limit of three", "four-fatals", 0,
         INSTALLED + [created(THROWN)] * 3 + LIMITED + UNINSTALLED, [OF_THROW] * 3, THROWN, THROWING, throws=True),
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
         function=CRASH_NOW),
    Case("CrashAfter", "crash-after", AV,
         INSTALLED + ["warning User-initiated crash in 300 ms", "warning User-initiated crash commencing"] + ENTERED + [created(AV)],
         [BY_DUMPER], function=CRASH_NOW,
         outermost=r"crv::crashguard::SleepAndCrash at user_crash\.cpp:\d+"),
    Case("CrashNow during a run", "during-run", AV,
         INSTALLED + ["warning User-initiated crash commencing"] + ENTERED + [created(AV)], [BY_DUMPER],
         function=CRASH_NOW, outermost=IN_THREAD, printed="", notices=1, own_folder=False),
    Case("a component crashes in the real host", "run /av /enable", AV, INSTALLED + ENTERED + [created(AV)], [BY_DUMPER],
         function=r".*CrashAsTold at scripted_calls\.cpp:\d+", printed="", notices=1, centre=["script", "CavmStart", "crash"], own_folder=False),
    Case("CrashNow outside of runs", "crash-now", AV, INSTALLED + ["warning User-initiated crash commencing"] + ENTERED + [created(AV)],
         [BY_DUMPER], notices=0),
]

SKIPPED = [
    ("heap corruption", "Wine's heap ends the process without an exception that a filter sees, or not at all"),
    ("fail-fast", "the system ends the process without asking anybody, on Windows as well"),
]
