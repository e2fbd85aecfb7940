// acceptance.exe: runs all tests of wsc.dll on this machine, a throw-away one, and leaves it as it was.
//
//   acceptance                                       says what it would do
//   acceptance /this-machine-may-be-changed          does it
//     /only:PATTERN,...   the tests or programs of these names alone, "wsc_tests" or "tour.xp.*"
//     /limit:SECONDS      that a test may take before it hangs; 180 unless given
//     /report:FOLDER      for report.txt and report.xml; that of the program unless given
//   acceptance /restore                              puts back what a run that was killed left
//
// Ends with 0 when all tests passed or were skipped, 1 when one failed, 2 for words that it does not understand, 3 when it did not begin and
// nothing was changed, 4 when the machine could not be put back, 5 when it was interrupted.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <iterator>
#include <optional>
#include <sstream>

#include "acceptance/journal.h"
#include "acceptance/kit.h"
#include "acceptance/machine.h"
#include "acceptance/processes.h"
#include "acceptance/report.h"
#include "acceptance/runner.h"
#include "base/command_line.h"
#include "base/exceptions.h"
#include "base/format_message.h"
#include "root/scoped_handle.h"
#include "root/token.h"
#include "service/control.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/named_lock.h"

namespace crv::acceptance {
namespace {

using standins::Print;
using standins::PrintError;
using standins::PrintLine;
using standins::UsageError;
using standins::Words;

enum Status { kAllPassed, kSomeFailed, kWrongWords, kRefused, kNotRestored, kInterrupted };

constexpr wchar_t kMayBeChanged[] = L"this-machine-may-be-changed";
constexpr const wchar_t* kOptions[] = {kMayBeChanged, L"only", L"limit", L"report", L"restore"};
constexpr DWORD kUsualLimit = 180;       // s; the longest step writes three dumps, each some seconds on a slow machine
constexpr DWORD kLongestLimit = 86'400;  // s
constexpr char kOwn[] = "acceptance";    // by which the report names what is wrong with the run itself
constexpr DWORD kRestoreTakes = 60'000;  // ms at most, for which a console that is closed is held

struct Refused {
  Words reasons;
};

// Set by Ctrl-C, and while nothing is left to be put back.
HANDLE interrupted = nullptr;
HANDLE put_back = nullptr;

BOOL WINAPI OnControl(DWORD event) {
  SetEvent(interrupted);
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
    WaitForSingleObject(put_back, kRestoreTakes);  // the process ends afterwards
  return TRUE;
}

// From here on Ctrl-C only asks for the end of the tests, and a console that is closed waits for the machine.
void HoldConsole() {
  if (!interrupted) {
    interrupted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    put_back = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!interrupted || !put_back) throw exceptions::error(GetLastError(), "cannot make an event");
    SetConsoleCtrlHandler(&OnControl, TRUE);
  }
  ResetEvent(put_back);
}

std::wstring Explained(const std::exception& failure) {
  wchar_t code[32] = L"";
  if (const auto* const coded = dynamic_cast<const exceptions::detail::base*>(&failure)) {
    _snwprintf(code, std::size(code), L" (error %lu)", static_cast<unsigned long>(coded->code()));
  }
  return FromUtf8(failure.what()) + code;
}

void Explain() {
  PrintLine(L"acceptance runs all tests of wsc.dll on this machine: " + FromUtf8(MachineText()) + L".");
  PrintLine(
      L"For that it installs the suite's stand-ins, replaces services and COM classes of the system, and crashes programs on "
      L"purpose.");
  PrintLine(L"Only run it in a virtual machine that can be thrown away. What it touches is saved in");
  PrintLine(L"  " + JournalFile());
  PrintLine(L"and put back at the end, also after Ctrl-C:");
  for (const std::wstring& touched : Touched()) PrintLine(L"  " + touched);
  PrintLine(L"Nothing is changed now. To begin:  acceptance /" + std::wstring(kMayBeChanged));
}

void PutBack() {
  HoldConsole();
  PrintLine(L"putting the machine back as it was");
  RestoreFromJournal();
  SetEvent(put_back);
}

// A machine that a run which was killed left half staged.
void OfferToRestore() {
  const std::wstring left = L"an earlier run did not come to its end; what it changed is in " + JournalFile();
  const HANDLE keyboard = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  if (!GetConsoleMode(keyboard, &mode)) throw Refused{{left, L"acceptance /restore puts the machine back first"}};
  Print(left + L"\r\nPut the machine back now? [y/n] ");
  SetConsoleMode(keyboard, ENABLE_PROCESSED_INPUT);  // a key at once, and Ctrl-C as ever
  wchar_t key = 0;
  DWORD read = 0;
  while (key != L'y' && key != L'n' && ReadConsoleW(keyboard, &key, 1, &read, nullptr) && read) key |= 0x20;  // in either case
  SetConsoleMode(keyboard, mode);
  PrintLine(key > L' ' ? std::wstring(1, key) : L"");
  if (key != L'y') throw Refused{{L"the machine stays as the earlier run left it"}};
  PutBack();
}

void RequireAdministrator() {
  if (!root::RunningUnderAdminAccount()) {
    throw Refused{{L"only an administrator can do this: start it from a console that was opened \"as administrator\""}};
  }
}

void RequireReady(const std::wstring& report_folder) {
  if (const Words wrong = Incomplete(); !wrong.empty()) throw Refused{wrong};
  if (Words found = InTheWay(); !found.empty()) {
    found.insert(found.begin(), L"a suite of this name is installed already; the tests would destroy it:");
    throw Refused{found};
  }
  try {
    RequireWritable(report_folder);
  } catch (const exceptions::error& failure) {
    throw Refused{{Explained(failure)}};
  }
}

// One line for each program of tests, and one for each test that failed.
class Narrator {
 public:
  explicit Narrator(std::size_t programs) : programs_(programs) {
    DWORD mode = 0;
    on_console_ = GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode);
  }

  void Begin(const TestProgram& program) {
    ++number_;
    head_ = L"[" + std::to_wstring(number_) + L"/" + std::to_wstring(programs_) + L"] " + FromUtf8(program.name());
    begun_ = GetTickCount();
  }

  void Tell(std::size_t done, std::size_t all, const Result& last) {
    if (last.what == Result::What::failed) {
      PrintLine((on_console_ ? L"\r" : L"") + (L"FAILED " + FromUtf8(last.test)) + L"                    ");
    }
    if (on_console_) Print(L"\r" + head_ + L"  " + std::to_wstring(done) + L" of " + std::to_wstring(all) + L"  ");
  }

  void End(const std::vector<Result>& results) {
    const Counts counts = Count(results);
    if (results.empty()) return;
    wchar_t text[128];
    _snwprintf(text, std::size(text), L"%u passed, %u failed, %u skipped, %.1f s", static_cast<unsigned>(counts.passed),
               static_cast<unsigned>(counts.failed), static_cast<unsigned>(counts.skipped), (GetTickCount() - begun_) / 1000.0);
    PrintLine((on_console_ ? L"\r" : L"") + head_ + L"  " + text);
  }

 private:
  const std::size_t programs_;
  bool on_console_ = false;
  std::size_t number_ = 0;
  std::wstring head_;
  DWORD begun_ = 0;
};

struct Options {
  DWORD limit = kUsualLimit;
  std::vector<std::string> only = {};
  std::wstring report_folder = {};
};

// What is wrong with the run itself stands in both reports as a test that failed.
void Blame(Report& report, const std::string& what, const std::string& why) {
  report.results.push_back({kOwn, std::string(kOwn) + "." + what, Result::What::failed, 0, why});
}

// On the machine that is saved. Gives whether it came to the end.
bool RunTests(const Options& options, Report& report) {
  try {
    PrintLine(L"installing the suite in " + SuiteFolder());
    const std::string refused = Stage(interrupted);
    if (!refused.empty()) {
      report.notes.push_back("The system did not let itself be changed: " + refused);
      PrintLine(FromUtf8(report.notes.back()));
    }
    const Runner runner(MachineTraits(!refused.empty()), options.limit * 1000, options.only, SuiteFolder(), interrupted);
    std::vector<TestProgram> programs;
    for (const std::wstring& image : TestPrograms()) programs.emplace_back(image);
    Narrator narrator(programs.size());
    for (const TestProgram& program : programs) {
      narrator.Begin(program);
      const std::size_t before = report.results.size();
      runner.Run(program, report.results,
                 [&](std::size_t done, std::size_t all, const Result& last) { narrator.Tell(done, all, last); });
      EndProcessesBelow({SuiteFolder()}, standins::kServiceProgram);
      narrator.End({report.results.begin() + before, report.results.end()});
    }
    for (const std::string& pattern : options.only) {
      const auto& results = report.results;
      const auto taken = [&](const Result& result) { return Takes(pattern, result.test); };
      if (std::none_of(results.begin(), results.end(), taken)) Blame(report, "only " + pattern, "no test has this name");
    }
    return true;
  } catch (const Interrupted&) {
    Blame(report, "end", "the run was interrupted");
    PrintLine(L"\r\ninterrupted");
  } catch (const std::exception& failure) {
    Blame(report, "end", "the run was broken off: " + ToUtf8(Explained(failure)));
    PrintError(L"acceptance: " + Explained(failure));
  }
  return false;
}

void Write(const Report& report, const std::wstring& folder) {
  try {
    WriteReports(report, folder);
    PrintLine(L"report.txt and report.xml are in " + folder);
  } catch (const std::exception& failure) {
    PrintError(L"acceptance: " + Explained(failure));
  }
}

int Run(const Options& options) {
  RequireReady(options.report_folder);
  Report report = {MachineText(), {}, {}};
  PrintLine(FromUtf8(report.machine));
  PrintLine(L"saving what will be touched in " + JournalFile());
  HoldConsole();
  WriteJournal();
  const bool complete = RunTests(options, report);
  Write(report, options.report_folder);
  try {
    PutBack();
  } catch (const std::exception& failure) {
    Blame(report, "restore", "the machine could not be put back: " + ToUtf8(Explained(failure)));
    Write(report, options.report_folder);
    throw;
  }
  const Counts counts = Count(report.results);
  PrintLine(std::to_wstring(counts.passed) + L" passed, " + std::to_wstring(counts.failed) + L" failed, " +
            std::to_wstring(counts.skipped) + L" skipped");
  return !complete ? kInterrupted : counts.failed ? kSomeFailed : kAllPassed;
}

Options OptionsFrom(const CommandLine& words) {
  for (const auto& [name, value] : words.switches()) {
    bool known = false;
    for (const wchar_t* const option : kOptions) known = known || _wcsicmp(option, name.c_str()) == 0;
    if (!known) throw UsageError{L"there is no option /" + name};
  }
  if (words.words().size() > 0) throw UsageError{L"the word '" + words.words()[0] + L"' is not understood"};
  Options options;
  if (words.has(L"limit")) options.limit = standins::NumberFrom(words.value(L"limit"));
  if (options.limit == 0 || options.limit > kLongestLimit) throw UsageError{L"/limit takes seconds, a day's at most"};
  std::istringstream patterns(ToUtf8(words.value(L"only")));
  for (std::string pattern; std::getline(patterns, pattern, ',');) options.only.push_back(pattern);
  if (words.has(L"only") && options.only.empty()) throw UsageError{L"/only takes names"};
  if (words.has(L"report") && words.value(L"report").empty()) throw UsageError{L"/report takes a folder"};
  options.report_folder = words.has(L"report") ? words.value(L"report") : KitFolder();
  return options;
}

int Main() {
  CommandLine words;
  words.parse(GetCommandLineW());
  const Options options = OptionsFrom(words);
  if (!words.has(L"restore") && !words.has(kMayBeChanged)) {
    Explain();
    return kWrongWords;
  }
  RequireAdministrator();
  const standins::NamedLock alone(L"Global\\Corvid acceptance", 0);
  if (!alone.held()) throw Refused{{L"another run is under way on this machine"}};
  if (words.has(L"restore")) {
    if (!IsJournalThere()) throw Refused{{L"there is nothing to put back: no run was broken off on this machine"}};
    PutBack();
    PrintLine(L"the machine is as it was");
    return kAllPassed;
  }
  if (IsJournalThere()) OfferToRestore();
  return Run(options);
}

}  // namespace
}  // namespace crv::acceptance

int main() {
  using namespace crv::acceptance;
  try {
    return Main();
  } catch (const UsageError& error) {
    PrintError(L"acceptance: " + error.text + L"; acceptance alone says what it does");
    return kWrongWords;
  } catch (const Refused& refused) {
    for (const std::wstring& reason : refused.reasons) PrintError(L"acceptance: " + reason);
    PrintError(L"acceptance: nothing was changed");
    return kRefused;
  } catch (const std::exception& failure) {
    PrintError(L"acceptance: " + Explained(failure));
    if (!IsJournalThere()) {
      PrintError(L"acceptance: nothing was changed");
      return kRefused;
    }
    PrintError(L"acceptance: the machine is not as it was; acceptance /restore tries again");
    return kNotRestored;
  }
}
