// Not among the cases are a corrupted heap, which some systems end without an exception that a filter sees, and the fast fail, which
// ends a process without asking anybody.
#include "matrix/cases.h"

#include <cstdio>
#include <iterator>

namespace crv::standins::matrix {
namespace {

const Lines kInstalled = {"info CrashGuard global exception handler installed",
                          "info CrashGuard initialized successfully, external dumping enabled"};
const Lines kInstalledAlone = {kInstalled[0], "info CrashGuard initialized successfully, only internal dumping available"};
const Lines kUninstalled = {"info CrashGuard global exception handler uninstalled"};
const Lines kEntered = {"debug Entering TopLevelExceptionFilter..."};
const Lines kTwice = {"warning Attempting to install crashguard twice, ignored."};
const Lines kIgnored = {"debug Exception was already dumped, ignoring..."};
const Lines kLimited = {"debug CrashHandler dump limit reached."};
const Lines kCommencing = {"warning User-initiated crash commencing"};
const Lines kInHandler = {"critical Failed to write minidump, SEH exception encountered"};
const std::string kBusy = "error Attempted to WriteDump while another operation is already in progress";

const std::string kByDumper = "";
const std::string kInProcess = "Dumped by CrashHandler";
const std::string kOfThrow = "Cause: VectoredExceptionHandler";

constexpr DWORD kDivision = EXCEPTION_INT_DIVIDE_BY_ZERO;
constexpr DWORD kInstruction = EXCEPTION_ILLEGAL_INSTRUCTION;
constexpr DWORD kBreakpoint = EXCEPTION_BREAKPOINT;
constexpr DWORD kOverflow = EXCEPTION_STACK_OVERFLOW;
constexpr DWORD kThrown = 0xE06D7363;
constexpr DWORD kFatalExit = STATUS_FATAL_APP_EXIT;
constexpr DWORD kHeld = ERROR_TIMEOUT;  // ended by the supervisor that held it

// A system without a reserve on the stack has none left for its own handling afterwards and ends the process with 0.
const std::vector<DWORD> kOverflowExits = {0, kOverflow};

const std::string kMissing = " /dumper:C:\\nowhere";
const std::string kWrite = "crv::standins::crasher::WriteToNull at faults\\.cpp:\\d+";
const std::string kThrowing = "crv::standins::crasher::ThrowFatal at faults\\.cpp:\\d+";
const std::string kCrashNow = "crv::crashguard::CrashNow at user_crash\\.cpp:\\d+";
const std::string kInThread = ".*thread.*";  // the library's own function that a thread starts in

std::string Fault(const std::string& function) { return "crv::standins::crasher::" + function + " at faults\\.cpp:\\d+"; }

Lines Created(DWORD code) {
  char text[128];
  std::snprintf(text, std::size(text), "debug Minidump created successfully. Exception code is: %lx", code);
  return {text};
}

Lines Failed(int status) { return {"critical Minidump generation failed with error: " + std::to_string(status)}; }

// Nobody wrote the dump for the process, so it had to do so itself.
const Lines kNoDumper =
    Joined(Lines{"error Failed to start process dumper at 'C:\\nowhere\\cvDump32.exe' due to error: *"}, Failed(7));

// A crash that went to the filter and was dumped.
Lines Crashed(DWORD code = kViolation) { return Joined(kInstalled, kEntered, Created(code)); }

Lines Times(int count, const Lines& lines) {
  Lines all;
  for (; count > 0; --count) all = Joined(all, lines);
  return all;
}

std::vector<Case> Faults() {
  return {
      {.name = "access violation", .words = "access-violation", .log = Crashed(), .dumps = {kByDumper}, .function = kWrite},
      {.name = "access violation in another thread, not limited",
       .words = "other-thread /limit:0",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = kWrite,
       .outermost = kWrite},
      {.name = "division by zero",
       .words = "division",
       .log = Crashed(kDivision),
       .dumps = {kByDumper},
       .code = kDivision,
       .function = Fault("DivisionByZero")},
      {.name = "illegal instruction",
       .words = "illegal-instruction",
       .log = Crashed(kInstruction),
       .dumps = {kByDumper},
       .code = kInstruction,
       .function = Fault("IllegalInstruction")},
      {.name = "breakpoint",
       .words = "breakpoint",
       .log = Crashed(kBreakpoint),
       .dumps = {kByDumper},
       .code = kBreakpoint,
       .function = Fault("Breakpoint")},
      {.name = "stack overflow, by the dumper",
       .words = "stack-overflow",
       .exits = kOverflowExits,
       .log = Joined(kInstalled, Created(kOverflow)),
       .dumps = {kByDumper},
       .code = kOverflow,
       .function = Fault("FillStack"),
       .outermost = Fault("FillStack")},
      {.name = "stack overflow, in-process",
       .words = "stack-overflow" + kMissing,
       .exits = kOverflowExits,
       .log = Joined(kInstalledAlone, kNoDumper, Created(kOverflow)),
       .dumps = {kInProcess},
       .code = kOverflow,
       .function = Fault("FillStack"),
       .outermost = Fault("FillStack"),
       .printed = {"install 1"}},
      {.name = "stack overflow, a log library and a handler that raise",
       .words = "stack-overflow /log:raises /handler:raises" + kMissing,
       .exits = kOverflowExits,
       .log = Joined(kInstalledAlone, kNoDumper, Created(kOverflow)),
       .dumps = {kInProcess},
       .code = kOverflow,
       .function = Fault("FillStack"),
       .outermost = Fault("FillStack"),
       .printed = {"install 1", "the handler went on"}},
      {.name = "stack overflow, a crash in the log library",
       .words = "stack-overflow /log:faults",
       .exits = kOverflowExits,
       .log = kInstalled,
       .dumps = {kByDumper},
       .code = kOverflow,
       .function = Fault("FillStack"),
       .outermost = Fault("FillStack")},
      {.name = "stack overflow, a crash in an event handler",
       .words = "stack-overflow /handler:faults",
       .exits = kOverflowExits,
       .log = Joined(kInstalled, kInHandler),
       .dumps = {kByDumper},
       .code = kOverflow,
       .function = Fault("FillStack"),
       .outermost = Fault("FillStack")},
      {.name = "abort",
       .words = "abort",
       .log = Crashed(kFatalExit),
       .dumps = {kByDumper},
       .code = kFatalExit,
       .function = Fault("Abort")},
      {.name = "uncaught C++ exception",
       .words = "uncaught",
       .log = Crashed(kThrown),
       .dumps = {kByDumper},
       .code = kThrown,
       .function = Fault("ThrowUncaught"),
       .throws = true},
      // The runtime's own frames come with nothing that a debugger unwinds by, and hide the frame that called them.
      {.name = "pure virtual call",
       .words = "pure-virtual",
       .log = Crashed(kFatalExit),
       .dumps = {kByDumper},
       .code = kFatalExit,
       .function = "crv::standins::crasher::Run at main\\.cpp:\\d+",
       .printed = {"install 0", "pure virtual method called"}},
      {.name = "a second thread crashes meanwhile",
       .words = "two-threads",
       .log = Joined(Crashed(), kEntered, Lines{"error Multiple calls to TopLevelExceptionFilter detected."}),
       .dumps = {kByDumper},
       .function = kWrite},
      {.name = "a crash in an event handler",
       .words = "access-violation /handler:faults",
       .log = Joined(kInstalled, kEntered, kInHandler),
       .dumps = {kByDumper},
       .function = kWrite},
      {.name = "a crash in an event handler, in-process",
       .words = "access-violation /handler:faults" + kMissing,
       .log = Joined(kInstalledAlone, kEntered, kNoDumper, kInHandler),
       .dumps = {kInProcess},
       .function = kWrite,
       .printed = {"install 1"}},
      {.name = "an event handler that throws",
       .words = "access-violation /handler:throws",
       .log = Joined(kInstalled, kEntered, kInHandler),
       .dumps = {kByDumper},
       .function = kWrite},
      {.name = "a crash in the log library",
       .words = "access-violation /log:faults",
       .log = kInstalled,
       .dumps = {kByDumper},
       .function = kWrite},
      {.name = "a crash in the log library, in-process",
       .words = "access-violation /log:faults" + kMissing,
       .log = kInstalledAlone,
       .dumps = {kInProcess},
       .function = kWrite,
       .printed = {"install 1"}},
      {.name = "a crash in a writer that nobody guards",
       .words = "in-writer",
       .log = Joined(kInstalled, kEntered, Lines{kBusy}, Failed(8), Lines{kBusy}),
       .dumps = {kInProcess},
       .exception = false,
       .name_of_dump = "asked.mdmp"},
      {.name = "a fatal error that nobody catches",
       .words = "uncaught-fatal /limit:1",
       .exits = {kThrown},
       .log = Joined(kInstalled, Created(kThrown), kEntered, kIgnored),
       .dumps = {kOfThrow},
       .code = kThrown,
       .function = kThrowing,
       .printed = {"install 0", "written"},
       .throws = true},
      {.name = "a fatal error that nobody catches, beyond the limit",
       .words = "uncaught-fatal /limit:0",
       .log = Joined(kInstalled, kLimited, kEntered, Created(kThrown)),
       .dumps = {kByDumper},
       .code = kThrown,
       .function = kThrowing,
       .printed = {"install 0", "written", "fatal written"}},
      {.name = "caught fatal errors and another one that nobody catches",
       .words = "last-fatal",
       .log = Joined(kInstalled, Times(3, Created(kThrown)), kLimited, kEntered, Created(kThrown)),
       .dumps = {kOfThrow, kOfThrow, kOfThrow, kByDumper},
       .code = kThrown,
       .function = kThrowing,
       .printed = {"install 0", "same place"},
       .throws = true},
      {.name = "the same context twice",
       .words = "microsoft-fatal",
       .log = Joined(kInstalled, Created(kThrown), kEntered, kIgnored),
       .dumps = {kOfThrow},
       .code = kThrown,
       .function = Fault("MicrosoftFatal")},
      {.name = "four fatal errors with a limit of three",
       .words = "four-fatals",
       .exits = {0},
       .log = Joined(kInstalled, Times(3, Created(kThrown)), kLimited, kUninstalled),
       .dumps = {kOfThrow, kOfThrow, kOfThrow},
       .code = kThrown,
       .function = kThrowing,
       .throws = true},
      {.name = "fatal errors without the vectored handler",
       .words = "four-fatals /flags:201",
       .exits = {0},
       .log = Joined(kInstalled, kUninstalled)},
      {.name = "full memory, by the dumper",
       .words = "access-violation /ratio:1",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = kWrite,
       .full = true},
      {.name = "CrashNow",
       .words = "crash-now",
       .log = Joined(kInstalled, kCommencing, kEntered, Created(kViolation)),
       .dumps = {kByDumper},
       .function = kCrashNow},
      {.name = "CrashAfter",
       .words = "crash-after",
       .log = Joined(kInstalled, Lines{"warning User-initiated crash in 300 ms"}, kCommencing, kEntered, Created(kViolation)),
       .dumps = {kByDumper},
       .function = kCrashNow,
       .outermost = "crv::crashguard::SleepAndCrash at user_crash\\.cpp:\\d+"},
  };
}

std::vector<Case> Dumpers() {
  return {
      {.name = "the dumper is missing",
       .words = "access-violation" + kMissing,
       .log = Joined(kInstalledAlone, kEntered, kNoDumper, Created(kViolation)),
       .dumps = {kInProcess},
       .function = kWrite,
       .printed = {"install 1"}},
      {.name = "the dumper ends with 3",
       .words = "access-violation",
       .log = Joined(kInstalled, kEntered, Failed(3), Created(kViolation)),
       .dumps = {kInProcess},
       .function = kWrite,
       .before = {"dumper exit 3"}},
      {.name = "the dumper writes and ends with 3",
       .words = "access-violation",
       .log = Joined(kInstalled, kEntered, Failed(3), Created(kViolation)),
       .dumps = {kByDumper, kInProcess},
       .function = kWrite,
       .before = {"dumper write 3"}},
      {.name = "the dumper crashes",
       .words = "access-violation",
       .log = Joined(kInstalled, kEntered, Failed(static_cast<int>(kViolation)), Created(kViolation)),
       .dumps = {kInProcess},
       .function = kWrite,
       .before = {"dumper crash"}},
      {.name = "the dumper hangs and is ended",
       .words = "dumper-ended",
       .log = Joined(kInstalled, kEntered, Failed(9), Created(kViolation)),
       .dumps = {kInProcess},
       .function = kWrite,
       .before = {"dumper hang"}},
      {.name = "the dump folder was removed",
       .words = "folder-removed",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = kWrite,
       .below = "\\removed\\deeper"},
      {.name = "no dump file can be created",
       .words = "file-refused" + kMissing,
       .exits = {kViolation},
       .log = Joined(kInstalledAlone, kEntered, kNoDumper),
       .printed = {"install 1"}},
      {.name = "the dump folder does not exist at install",
       .words = "access-violation /folder:{folder}\\missing",
       .printed = {"log library: cannot write *", "*Dump path '*\\missing' does not exist. Directory should be already created.",
                   "install 3"}},
      {.name = "a service account",
       .words = "access-violation /pretend:service",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = kWrite,
       .handled = true},
      {.name = "shutdown",
       .words = "access-violation /pretend:shutdown",
       .log = Joined(Crashed(), Lines{"info Saved a crash when system is shutting down."}),
       .dumps = {kByDumper},
       .function = kWrite,
       .handled = true},
  };
}

std::vector<Case> Guards() {
  return {
      {.name = "the filter is locked against replacement",
       .words = "filter-replaced",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = kWrite,
       .printed = {"install 0", "replaced 0"}},
      {.name = "the filter is replaced when it is not locked",
       .words = "filter-replaced /flags:300",
       .log = kInstalled,
       .printed = {"install 0", "replaced 1", "other filter"}},
      {.name = "no crash", .words = "none", .exits = {0}, .log = Joined(kInstalled, kUninstalled)},
      {.name = "no crash, and a supervisor that holds the end",
       .words = "none /signal",
       .exits = {kHeld},
       .log = kInstalled,
       .printed = {"install 0", "held"},
       .handled = true},
      {.name = "installed twice, uninstalled twice",
       .words = "uninstalled",
       .log = Joined(kInstalled, kTwice, kUninstalled),
       .printed = {"install 0 2 uninstall 1 0", "other filter"}},
      {.name = "installed again",
       .words = "installed-again",
       .log = Joined(kInstalled, kUninstalled, Crashed()),
       .dumps = {kByDumper},
       .function = kWrite},
  };
}

// The module itself.
std::vector<Case> Libraries() {
  return {
      {.name = "a run of the module ends meanwhile",
       .words = "run-ends",
       .log = Joined(kInstalled, kEntered, kTwice, Created(kViolation)),
       .dumps = {kByDumper},
       .function = kWrite,
       .outermost = kWrite,
       .printed = {"install 0", "run came back after the dump"},
       .own_folder = false},
      {.name = "wsc.dll is freed",
       .words = "unloaded",
       .log = Joined(kInstalled, kUninstalled),
       .printed = {"run 0x00000000", "loaded 0", "previous 1", "other filter"},
       .own_folder = false},
      {.name = "wsc.dll is freed, and a supervisor holds it",
       .words = "unloaded /signal",
       .exits = {kHeld},
       .log = kInstalled,
       .printed = {"run 0x00000000", "held"},
       .handled = true,
       .own_folder = false},
      {.name = "wsc.dll is loaded and freed again and again",
       .words = "loaded-often",
       .exits = {0},
       .log = Times(11, Joined(kInstalled, kUninstalled)),
       .printed = Joined(Times(11, {"run 0xffffffff"}), Lines{"lost slots 0, pages 0"}),
       .own_folder = false},
      {.name = "wsc.dll without a thread-local slot",
       .words = "no-slot",
       .exits = {0},
       .log = Joined(kInstalled, Created(kThrown), kUninstalled),
       .dumps = {kOfThrow},
       .code = kThrown,
       .printed = {"run 0x00000057"},
       .own_folder = false},
      {.name = "four runs of wsc.dll with wrong requests",
       .words = "four-runs",
       .exits = {0},
       .log = Joined(kInstalled, Created(kThrown), Times(2, Joined(kTwice, Created(kThrown))), kTwice, kLimited, kUninstalled),
       .dumps = {kOfThrow, kOfThrow, kOfThrow},
       .code = kThrown,
       .function = "crv::wsc::SelectAction at svc_mode\\.cpp:\\d+",
       .printed = Joined(Times(4, {"run 0x000000a0"}), Lines{"error mode 0x8003"}),
       .throws = true,
       .own_folder = false},
      {.name = "a wrong request to a moved wsc.dll",
       .words = "moved",
       .exits = {0},
       .log = Joined(kInstalled, Created(kThrown), kUninstalled),
       .dumps = {kOfThrow},
       .code = kThrown,
       .function = "crv::wsc::SelectAction at svc_mode\\.cpp:\\d+",
       .printed = {"moved 1", "run 0x000000a0"},
       .throws = true,
       .own_folder = false},
      {.name = "CrashNow during a run",
       .words = "during-run",
       .log = Joined(kInstalled, kCommencing, kEntered, Created(kViolation)),
       .dumps = {kByDumper},
       .function = kCrashNow,
       .outermost = kInThread,
       .printed = {},
       .notices = 1,
       .own_folder = false},
      {.name = "a component crashes in the real host",
       .words = "run /av /enable",
       .log = Crashed(),
       .dumps = {kByDumper},
       .function = ".*CrashAsTold at scripted_calls\\.cpp:\\d+",
       .printed = {},
       .before = {"script CavmStart crash"},
       .notices = 1,
       .own_folder = false},
      {.name = "CrashNow outside of runs",
       .words = "crash-now",
       .log = Joined(kInstalled, kCommencing, kEntered, Created(kViolation)),
       .dumps = {kByDumper},
       .notices = 0},
  };
}

}  // namespace

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases = [] {
    std::vector<Case> all;
    for (auto* const group : {&Faults, &Dumpers, &Guards, &Libraries}) {
      for (Case& one : group()) {
        if (one.exits.empty()) one.exits = {one.code};
        all.push_back(std::move(one));
      }
    }
    return all;
  }();
  return cases;
}

}  // namespace crv::standins::matrix
