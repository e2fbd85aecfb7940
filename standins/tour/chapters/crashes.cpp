// The crash guard: a host that crashes leaves a minidump. crasher.exe is a host that crashes on purpose, with the whole module in it.
#include "tour/chapters/lines.h"

namespace crv::standins::tour {

namespace {

const Lines kGuarded = {"info crashguard: CrashGuard global exception handler installed",
                        "info crashguard: CrashGuard initialized successfully, external dumping enabled"};
const Lines kNoDumper = {"info crashguard: CrashGuard global exception handler installed",
                         "info crashguard: CrashGuard initialized successfully, only internal dumping available"};
const Lines kUpdating = {"info wsc: wsc started: 'crasher.exe /av /update'", "info wsc: Updating AV."};
const Lines kCrashNow = {"warning crashguard: User-initiated crash commencing"};
const Lines kFilter = {"debug crashguard: Entering TopLevelExceptionFilter..."};

}  // namespace

std::vector<Chapter> CrashChapters() {
  return {
      {"crash",
       "A crash during a run",
       "The external dumper writes the dump, and the self-protection driver is told of it.",
       "win10",
       {{.before = {"driver start"},
         .crash = "during-run",
         .result = 0xc0000005,
         .frame = Frame::none,
         .log = Joined(kGuarded, kUpdating, kCrashNow, kFilter, logs::Dumped("c0000005")),
         .leaves = Joined(Lines{"loaded | 1 (trusted) | 0 | - | 1"}, DumpedOutside("")),
         .dumps = {{0xc0000005, "", "crv::crashguard::CrashNow at user_crash.cpp:[0-9]+"}}}}},

      {"library-crash",
       "A library of the suite crashes",
       "The host ends while it enables the protection; the dump names the place.",
       "win10",
       {{.before = {"script CavmStart crash"},
         .request = "/av /enable",
         .result = 0xc0000005,
         .frame = Frame::crashed,
         .log = Joined(kFilter, logs::Dumped("c0000005")),
         .leaves = DumpedOutside(""),
         .dumps = {{0xc0000005, "", "CrashAsTold at scripted_calls.cpp:[0-9]+"}}}}},

      {"no-dumper",
       "A crash without the dumper",
       "The process writes its dump itself.",
       "win10",
       {{.before = {"library cvDump32.exe away"},
         .crash = "during-run",
         .result = 0xc0000005,
         .frame = Frame::none,
         .log = Joined(kNoDumper, kUpdating, kCrashNow, kFilter,
                       Lines{"error crashguard: Failed to start process dumper at '{suite}\\cvDump32.exe' due to error: 2",
                             "critical crashguard: Minidump generation failed with error: 7"},
                       logs::Dumped("c0000005")),
         .leaves = {kDumpFile},
         .dumps = {{0xc0000005, "Dumped by CrashHandler", "crv::crashguard::CrashNow at user_crash.cpp:[0-9]+"}}}}},

      {"limit",
       "Four fatal errors in one process",
       "Three dumps are the limit.",
       "win10",
       {{.crash = "four-fatals",
         .frame = Frame::none,
         .log = Joined(kGuarded, logs::Dumped("e06d7363"), logs::Dumped("e06d7363"), logs::Dumped("e06d7363"),
                       Lines{"debug crashguard: CrashHandler dump limit reached.",
                             "info crashguard: CrashGuard global exception handler uninstalled"}),
         .leaves = {DumperRun(kThrown), DumperRun(kThrown), DumperRun(kThrown), kDumpFile, kDumpFile, kDumpFile},
         .dumps = {{kThrow, kThrown, "ThrowFatal at faults.cpp:[0-9]+"},
                   {kThrow, kThrown, "ThrowFatal at faults.cpp:[0-9]+"},
                   {kThrow, kThrown, "ThrowFatal at faults.cpp:[0-9]+"}}}}},

      {"dumper-crash",
       "A dumper that crashes itself",
       "The dump is written all the same.",
       "win10",
       {{.before = {"dumper crash"},
         .crash = "division",
         .result = 0xc0000094,
         .frame = Frame::none,
         .log = Joined(kGuarded, kFilter, Lines{"critical crashguard: Minidump generation failed with error: -1073741819"},
                       logs::Dumped("c0000094")),
         .leaves = DumpedOutside(""),
         .dumps = {{0xc0000094, "Dumped by CrashHandler", "DivisionByZero at faults.cpp:[0-9]+"}}}}},
  };
}

}  // namespace crv::standins::tour
