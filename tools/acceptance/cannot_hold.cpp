#include "acceptance/cannot_hold.h"

#include <algorithm>

#include "shared/lines.h"

namespace crv::acceptance {
namespace {

struct Row {
  Trait trait;
  const char* tests;  // with "*" for any text
  const char* reason;
};

constexpr char kOtherWindows[] = "a real Windows cannot be taken for another one";
constexpr char kGuarded[] = "the system lets nobody take the place of Security Center's classes and services";
constexpr char kNoDriver[] = "a 64-bit system loads no 32-bit driver";
constexpr char kFolders[] = "the system looks for its folders in the part of the registry that the test redirects";
constexpr char kNoCtrlRoutine[] = "the system names no function that handles Ctrl-C";

// The first row that fits decides; one without a reason says that the tests hold.
constexpr Row kRows[] = {
    {Trait::real_xp, "tour.xp.*", nullptr},
    {Trait::real_windows, "tour.*", kOtherWindows},
    {Trait::guarded, "tour.*", kGuarded},
    {Trait::real_windows, "matrix.a second thread crashes meanwhile",
     "the first crash may end the process before the second's turn"},
    {Trait::real_64_bit, "matrix.CrashNow during a run", kNoDriver},
    {Trait::real_64_bit, "matrix.a component crashes in the real host", kNoDriver},
    {Trait::real_64_bit, "matrix.CrashNow outside of runs", kNoDriver},
    {Trait::no_ctrl_routine, "crashguard_tests.Filters.*", kNoCtrlRoutine},
    {Trait::no_ctrl_routine, "crashguard_tests.Install.ReportsWhatTheSystemRefuses", kNoCtrlRoutine},
    {Trait::folders_from_hive, "entry_tests.Run.ARequestGivesTheCodeOfItsFirstFailureAndOneRecordOfIt", kFolders},
    {Trait::folders_from_hive, "entry_tests.Run.TheCurrentFolderIsNoPlaceToLoadFrom", kFolders},
    {Trait::reactos, "base_tests.Exceptions.CarryCodeAndMessageOfEveryForm", "its C runtime formats what it cannot convert"},
    {Trait::reactos, "crashguard_tests.CrashSignalAtExit.*", "its SetEvent takes the handle of a process"},
    {Trait::reactos, "installer_tests.Updater.AnInstallerRunsAndIsWaitedFor*",
     "its jobs do not end their processes when they are closed"},
    {Trait::reactos, "installer_tests.DecodeSettings.*", "it decodes no UTF-8 of four bytes"},
    {Trait::reactos, "installer_tests.SettingsFile.WaitsForSomebodysExclusiveLockOfAnyByte",
     "it unlocks no byte behind the end of a file"},
    {Trait::reactos, "platform_tests.RuntimeHooks.WhatNobodyCatches*", "its C runtime forgets the handler of SIGABRT"},
    {Trait::reactos, "matrix.a run of the module ends meanwhile", "it ends the process before the thread that waited can print"},
    {Trait::reactos, "root_tests.Registry.ReadsTexts*", "it expands no text of 32,766 characters"},
    {Trait::reactos, "root_tests.SystemLibrary.IsTaken*", "its GetModuleHandleExW finds modules that are not there"},
};

}  // namespace

std::string WhyNot(const std::string& name, const std::vector<Trait>& traits) {
  for (const Row& row : kRows) {
    const bool applies = std::find(traits.begin(), traits.end(), row.trait) != traits.end();
    if (applies && standins::MatchesPattern(row.tests, name)) return row.reason ? row.reason : "";
  }
  return {};
}

}  // namespace crv::acceptance
