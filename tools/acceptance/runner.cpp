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

constexpr DWORD kLook = 50;                 // ms between two looks at what was printed
constexpr std::size_t kLongestText = 8192;  // bytes of a failure's output that are kept, the last ones

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, std::size(text), "0x%08lx", number);
  return text;
}

std::string Last(std::string text) {
  while (text.ends_with('\n')) text.pop_back();
  return text.size() <= kLongestText ? text : "...\n" + text.substr(text.find('\n', text.size() - kLongestText) + 1);
}

}  // namespace

// How a run ended.
struct Runner::Ended {
  std::optional<DWORD> status;  // empty: it hung and was ended
  std::string text() const { return status ? "the program ended with " + Hex(*status) : "hung, and was ended"; }
};

Runner::Ended Runner::RunToEnd(const std::wstring& image, const std::wstring& arguments,
                               const std::function<void(const std::string&)>& line) const {
  const std::wstring output = work_ + L"\\output.txt";
  Process process(image, arguments, output);
  const root::ScopedFile file(
      CreateFileW(output.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string unfinished;
  const auto read = [&] {
    char buffer[4096];
    bool any = false;
    for (DWORD size = 0; ReadFile(file.get(), buffer, sizeof(buffer), &size, nullptr) && size > 0; any = true) {
      unfinished.append(buffer, size);
    }
    for (std::size_t end; (end = unfinished.find('\n')) != std::string::npos; unfinished.erase(0, end + 1)) {
      line(unfinished.substr(0, end > 0 && unfinished[end - 1] == '\r' ? end - 1 : end));
    }
    return any;
  };
  for (DWORD last = GetTickCount();;) {
    const HANDLE events[] = {process.handle(), interrupt_};
    const DWORD event = WaitForMultipleObjects(2, events, FALSE, kLook);
    if (event == WAIT_OBJECT_0 + 1) throw Interrupted();
    if (read()) last = GetTickCount();
    if (event == WAIT_OBJECT_0) break;
    if (GetTickCount() - last >= limit_) {
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

bool Runner::IsChosen(const std::string& name) const {
  return only_.empty() || std::any_of(only_.begin(), only_.end(), [&](const std::string& pattern) {
           return standins::MatchesPattern(pattern, name) || standins::MatchesPattern(pattern + ".*", name);
         });
}

void Runner::Run(const TestProgram& program, std::vector<Result>& results, const Progress& progress) const {
  std::string printed;
  const Ended listed =
      RunToEnd(program.image(), program.ListArguments(), [&](const std::string& text) { printed += text + "\n"; });
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
    const Ended run = RunToEnd(program.image(), program.RunArguments(left), [&](const std::string& line) {
      const TestLine read = ReadTestLine(line);
      if (read.what == TestLine::What::begins) {
        current = full(read.name);
        begun = GetTickCount();
        text.clear();
      } else if (current.empty() || read.what == TestLine::What::other || full(read.name) != current) {
        text += line + "\n";
      } else {
        end(read.what == TestLine::What::passed    ? Result::What::passed
            : read.what == TestLine::What::skipped ? Result::What::skipped
                                                   : Result::What::failed,
            text);
      }
    });
    const bool stuck = current.empty();
    if (!stuck) end(Result::What::failed, run.text() + "\n" + text);
    // The rest of a chapter that did not come to its end, and everything when the program does not even begin.
    std::vector<const Unit*> rest;
    for (const Unit* const unit : left) {
      const bool begins = std::any_of(unit->tests.begin(), unit->tests.end(), [&](auto& test) { return ended.contains(test); });
      if (!begins && !stuck) {
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
  for (const Unit& unit : units) {
    for (const std::string& test : unit.tests) results.push_back(ended[test]);
  }
}

}  // namespace crv::acceptance
