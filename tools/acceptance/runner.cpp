#include "acceptance/runner.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>

#include "acceptance/cannot_hold.h"
#include "acceptance/processes.h"
#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "shared/lines.h"

namespace crv::acceptance {
namespace {

constexpr DWORD kLook = 50;                       // ms between two looks at what was printed
constexpr std::size_t kLongestText = 8192;        // bytes of a failure's output that are kept, the last ones
constexpr std::size_t kLongestOutput = 64 << 20;  // bytes of a program's output, after which it never ends by itself

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, std::size(text), "0x%08lx", number);
  return text;
}

std::string Last(std::string text) {
  while (text.ends_with('\n')) text.pop_back();
  if (text.size() <= kLongestText) return text;
  const std::size_t from = text.size() - kLongestText;
  const std::size_t line = text.find('\n', from);
  return "...\n" + text.substr(line == std::string::npos ? from : line + 1);
}

}  // namespace

// How a run ended.
struct Runner::Ended {
  std::optional<DWORD> status;  // empty: it hung and was ended
  std::string text() const { return status ? "the program ended with " + Hex(*status) : "hung, and was ended"; }
};

// `line` says whether a test began or ended with it, from which the time is counted.
Runner::Ended Runner::RunToEnd(const std::wstring& image, const std::wstring& arguments,
                               const std::function<bool(const std::string&)>& line) const {
  const std::wstring output = work_ + L"\\output.txt";
  Process process(image, arguments, output);
  const root::ScopedFile file(
      CreateFileW(output.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string unfinished;
  std::size_t printed = 0;
  const auto read = [&] {
    char buffer[4096];
    bool any = false;
    for (DWORD size = 0; printed < kLongestOutput && ReadFile(file.get(), buffer, sizeof(buffer), &size, nullptr) && size > 0;) {
      unfinished.append(buffer, size);
      printed += size;
    }
    std::size_t begin = 0;
    for (std::size_t end; (end = unfinished.find('\n', begin)) != std::string::npos; begin = end + 1) {
      any |= line(unfinished.substr(begin, end - begin - (end > begin && unfinished[end - 1] == '\r')));
    }
    unfinished.erase(0, begin);
    return any;
  };
  for (DWORD last = GetTickCount();;) {
    const HANDLE events[] = {process.handle(), interrupt_};
    const DWORD event = WaitForMultipleObjects(2, events, FALSE, kLook);
    if (event == WAIT_OBJECT_0 + 1) throw Interrupted();
    if (read()) last = GetTickCount();
    if (event == WAIT_OBJECT_0) break;
    if (GetTickCount() - last >= limit_ || printed >= kLongestOutput) {
      process.End();
      read();
      if (!unfinished.empty()) line(unfinished);
      return {};
    }
  }
  read();
  if (!unfinished.empty()) line(unfinished);
  return {process.Result()};
}

bool Takes(const std::string& pattern, const std::string& test) {
  return standins::MatchesPattern(pattern, test) || standins::MatchesPattern(pattern + ".*", test);
}

bool Runner::IsChosen(const std::string& name) const {
  return only_.empty() ||
         std::any_of(only_.begin(), only_.end(), [&](const std::string& pattern) { return Takes(pattern, name); });
}

void Runner::Run(const TestProgram& program, std::vector<Result>& results, const Progress& progress) const {
  std::string printed;
  const Ended listed =
      RunToEnd(program.image(), program.ListArguments(), [&](const std::string& text) { return printed += text + "\n", false; });
  std::vector<Unit> units = program.ReadList(printed);
  if (listed.status != DWORD{0} || units.empty()) {
    results.push_back({program.name(), "the list of its tests", Result::What::failed, 0, listed.text() + "\n" + Last(printed)});
    return progress(1, 1, results.back());
  }

  std::map<std::string, Result> ended;  // by the test
  std::vector<const Unit*> left;
  std::size_t all = 0;
  std::erase_if(units, [&](const Unit& unit) {
    return std::none_of(unit.tests.begin(), unit.tests.end(), [&](auto& t) { return IsChosen(t); });
  });
  for (const Unit& unit : units) {
    std::string reason;
    for (const std::string& test : unit.tests) reason = reason.empty() ? WhyNot(test, traits_) : reason;
    for (const std::string& test : unit.tests) {
      if (!reason.empty()) ended[test] = {program.name(), test, Result::What::skipped, 0, reason};
    }
    if (reason.empty()) left.push_back(&unit);
    all += unit.tests.size();
  }

  // A test program of gtest does not know its own name.
  const std::string prefix = program.name() + ".";
  const auto full = [&](const std::string& name) { return name.starts_with(prefix) ? name : prefix + name; };
  const auto report = [&] {
    for (const Unit& unit : units) {
      for (const std::string& test : unit.tests) {
        if (ended.contains(test)) results.push_back(ended[test]);
      }
    }
  };
  while (!left.empty()) {
    std::string current, text;
    DWORD begun = 0;
    bool any_failed = false;
    const auto end = [&](Result::What what, const std::string& output) {
      const auto kept = what == Result::What::passed ? std::string() : Last(output);
      ended[current] = {program.name(), current, what, GetTickCount() - begun, kept};
      any_failed = any_failed || what == Result::What::failed;
      progress(ended.size(), all, ended[current]);
      current.clear();
      text.clear();
    };
    const auto take = [&](const std::string& line) {
      const TestLine read = ReadTestLine(line);
      if (read.what == TestLine::What::begins) {
        current = full(read.name);
        begun = GetTickCount();
        text.clear();
      } else if (current.empty() || read.what == TestLine::What::other || full(read.name) != current) {
        text += line + "\n";
        return false;
      } else {
        end(read.what == TestLine::What::passed    ? Result::What::passed
            : read.what == TestLine::What::skipped ? Result::What::skipped
                                                   : Result::What::failed,
            text);
      }
      return true;
    };
    Ended run;
    try {
      run = RunToEnd(program.image(), program.RunArguments(left), take);
    } catch (...) {
      report();
      throw;
    }
    const auto begun_of = [&](const Unit* unit) {
      return std::any_of(unit->tests.begin(), unit->tests.end(), [&](auto& test) { return ended.contains(test); });
    };
    const bool broken_off = !current.empty();
    if (broken_off) end(Result::What::failed, run.text() + "\n" + text);
    // The rest of a chapter that did not come to its end, and everything when the program does not even begin.
    const bool goes_on = broken_off && std::any_of(left.begin(), left.end(), begun_of);
    std::vector<const Unit*> rest;
    for (const Unit* const unit : left) {
      if (goes_on && !begun_of(unit)) {
        rest.push_back(unit);
        continue;
      }
      for (const std::string& test : unit->tests) {
        if (!ended.contains(test))
          ended[test] = {program.name(), test, Result::What::failed, 0, "not run: " + run.text() + "\n" + Last(text)};
      }
    }
    if (rest.empty() && !any_failed && run.status != DWORD{0}) {
      results.push_back({program.name(), program.name() + "'s end", Result::What::failed, 0, run.text() + "\n" + Last(text)});
    }
    left = rest;
  }
  report();
}

}  // namespace crv::acceptance
