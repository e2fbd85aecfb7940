// tour.exe: shows what wsc.dll does, step by step, and checks that everything comes out as announced.
//
//   tour list                                  the chapters
//   tour list --steps                          every step by the name that it has with --tests
//   tour run [CHAPTER...] --tests              a line for each step, as a program of tests prints them; no dump is kept
//   tour run [CHAPTER...] [--own] [--quiet] [--junit FILE] [--colour]
//
// Ends with 0 when all came out as announced, 1 when not or when there is nothing to tour, 2 for words that it does not understand.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/test_lines.h"
#include "tour/judge.h"
#include "tour/narrator.h"
#include "tour/play.h"
#include "tour/report.h"
#include "tour/scenario.h"

namespace crv::standins::tour {
namespace {

constexpr wchar_t kUsage[] =
    L"tour list                 shows the chapters\r\n"
    L"tour run [CHAPTER...]     plays those that belong on this machine, or those that are named; the last line counts the "
    L"steps\r\n"
    L"  --own                   those that belong on no other machine\r\n"
    L"  --quiet                 a line for each chapter and for each step that differs\r\n"
    L"  --junit FILE            writes a JUnit report as well\r\n"
    L"  --tests                 a line for each step, as a program of tests prints them\r\n"
    L"  --colour                in colour, also where no console is seen";

struct Options {
  std::vector<const Chapter*> chapters;
  bool own = false;
  bool quiet = false;
  bool tests = false;
  bool colour = false;
  std::wstring junit;
};

const Chapter& Find(const std::wstring& name) {
  for (const Chapter& chapter : Chapters()) {
    if (FromUtf8(chapter.name) == name) return chapter;
  }
  throw UsageError{L"there is no chapter '" + name + L"'; tour list shows them"};
}

std::wstring Needs(const Chapter& chapter) {
  return chapter.machine == Machine::any           ? L"any"
         : chapter.machine == Machine::only_32_bit ? L"32-bit Windows"
                                                   : L"64-bit Windows";
}

Options OptionsFrom(const Words& words) {
  Options options;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (words[i] == L"--quiet") {
      options.quiet = true;
    } else if (words[i] == L"--own") {
      options.own = true;
    } else if (words[i] == L"--tests") {
      options.tests = true;
    } else if (words[i] == L"--colour") {
      options.colour = true;
    } else if (words[i] == L"--junit") {
      if (++i == words.size()) throw UsageError{L"--junit takes a file"};
      options.junit = words[i];
    } else if (words[i].starts_with(L"-")) {
      throw UsageError{L"unknown option '" + words[i] + L"'"};
    } else {
      options.chapters.push_back(&Find(words[i]));
    }
  }
  for (const Chapter* const chapter : options.chapters) {
    if (!BelongsHere(*chapter) && !options.tests)
      throw UsageError{L"the chapter '" + FromUtf8(chapter->name) + L"' needs " + Needs(*chapter)};
  }
  if (options.chapters.empty()) {
    for (const Chapter& chapter : Chapters()) {
      if (BelongsHere(chapter) && (!options.own || chapter.machine != Machine::any)) options.chapters.push_back(&chapter);
    }
  }
  return options;
}

// A console that takes the sequences for colours.
bool ConsoleHasColours() {
  constexpr DWORD kVirtualTerminal = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING, Windows 10 and later
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(output, &mode) && SetConsoleMode(output, mode | kVirtualTerminal);
}

void RequireSuite() {
  for (const wchar_t* const file : {L"wsc_proxy.exe", L"wsc.dll", L"crasher.exe"}) {
    if (GetFileAttributesW(Beside(file).c_str()) != INVALID_FILE_ATTRIBUTES) continue;
    throw exceptions::error(ERROR_FILE_NOT_FOUND, L"there is nothing to tour: cannot find %s", Beside(file).c_str());
  }
}

int List() {
  Table table = {{L"Chapter", L"Steps", L"Windows", L"Machine", L"Shows"}};
  for (const Chapter& chapter : Chapters()) {
    table.push_back({FromUtf8(chapter.name), std::to_wstring(chapter.steps.size()), FromUtf8(chapter.windows), Needs(chapter),
                     FromUtf8(chapter.title)});
  }
  PrintTable(table);
  return 0;
}

// "chapter.2 /svc /update".
std::string StepName(const Chapter& chapter, std::size_t number, const Step& step) {
  return chapter.name + "." + std::to_string(number) + " " + (step.crash.empty() ? step.request : step.crash);
}

int ListSteps() {
  for (const Chapter& chapter : Chapters()) {
    std::size_t number = 0;
    for (const Step& step : chapter.steps) PrintUtf8(StepName(chapter, ++number, step) + "\r\n");
  }
  return 0;
}

int RunAsTests(const Options& options) {
  RequireSuite();
  TestLines lines("tour");
  for (const Chapter* const chapter : options.chapters) {
    const bool belongs = BelongsHere(*chapter);
    const Lines troubles = belongs ? PrepareMachine(*chapter) : Lines();
    std::size_t number = 0;
    for (const Step& step : chapter->steps) {
      lines.Begin(StepName(*chapter, ++number, step));
      if (!belongs) {
        lines.Skip("it needs " + ToUtf8(Needs(*chapter)));
        continue;
      }
      Lines differing;
      for (const Difference& difference : Judge(step, troubles.empty() ? Play(step) : Outcome{.troubles = troubles})) {
        differing.push_back(difference.what + " (- announced, + came)");
        differing = Joined(differing, difference.text);
      }
      lines.End(differing);
    }
  }
  if (const Lines troubles = LeaveMachineClean(); !troubles.empty()) throw exceptions::error("%s", troubles[0].c_str());
  return lines.EndAll();
}

int Run(const Options& options) {
  if (options.tests) return RunAsTests(options);
  RequireSuite();
  std::size_t all_steps = 0;
  for (const Chapter* const chapter : options.chapters) all_steps += chapter->steps.size();
  Narrator narrator(options.quiet, options.colour || ConsoleHasColours(), all_steps);
  JUnitReport report;
  Shelf shelf;
  Counts all;
  std::size_t number = 0;
  for (const Chapter* const chapter : options.chapters) {
    narrator.Begin(*chapter, ++number);
    const Lines troubles = PrepareMachine(*chapter);
    Counts counts;
    for (const Step& step : chapter->steps) {
      narrator.BeginStep(step);
      const Outcome outcome = troubles.empty() ? Play(step) : Outcome{.troubles = troubles};
      const std::vector<Difference> differences = Judge(step, outcome);
      ++(differences.empty() ? counts.passed : counts.failed);
      const std::size_t in_chapter = counts.passed + counts.failed;
      narrator.EndStep(step, outcome, differences);
      report.Add(*chapter, in_chapter, step, outcome, differences);
      shelf.Keep(*chapter, in_chapter, step, outcome);
    }
    narrator.End(*chapter, counts);
    all.passed += counts.passed;
    all.failed += counts.failed;
  }
  if (const Lines troubles = LeaveMachineClean(); !troubles.empty()) throw exceptions::error("%s", troubles[0].c_str());
  shelf.WriteFiles();
  if (!options.junit.empty()) report.Write(options.junit);
  narrator.EndTour(all);
  return all.failed ? 1 : 0;
}

int Main(const Words& words) {
  if (words == Words{L"list", L"--steps"}) return ListSteps();
  if (!words.empty() && words[0] == L"list") {
    if (words.size() > 1) throw UsageError{L"list takes no words"};
    return List();
  }
  if (!words.empty() && words[0] == L"run") return Run(OptionsFrom(words));
  throw UsageError{words.empty() ? L"a command is missing" : L"unknown command '" + words[0] + L"'"};
}

}  // namespace
}  // namespace crv::standins::tour

int main() {
  using namespace crv::standins;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  try {
    return tour::Main(Words(words + std::min(count, 1), words + count));
  } catch (const UsageError& error) {
    PrintError(L"tour: " + error.text + L"\r\n" + tour::kUsage);
    return 2;
  } catch (const crv::exceptions::detail::base& error) {
    PrintError(L"tour: " + crv::FromUtf8(error.what() + (" (" + tour::Hex(error.code()) + ")")));
    return 1;
  }
}
