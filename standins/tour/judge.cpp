#include "tour/judge.h"

#include <algorithm>
#include <utility>

#include "base/format_message.h"
#include "root/file_version.h"
#include "shared/places.h"

namespace crv::standins::tour {
namespace {

const Lines kGuardInstalled = {"info crashguard: CrashGuard global exception handler installed",
                               "info crashguard: CrashGuard initialized successfully, external dumping enabled"};
constexpr char kGuardUninstalled[] = "info crashguard: CrashGuard global exception handler uninstalled";

std::string ModuleVersion() {
  const root::FileVersion version = root::GetFileVersion(Beside(L"wsc.dll"));
  return std::to_string(version.major) + "." + std::to_string(version.minor) + "." + std::to_string(version.build) + "." +
         std::to_string(version.revision);
}

std::string WithNames(std::string text) {
  static const std::pair<std::string, std::string> kNames[] = {
      {"{host}", ToUtf8(Beside(L"wsc_proxy.exe"))},
      {"{suite}", ToUtf8(Beside(L"")).substr(0, ToUtf8(Beside(L"")).size() - 1)},
      {"{log}", ToUtf8(LogFolder())},
      {"{tour}", std::to_string(GetCurrentProcessId())},
      {"{version}", ModuleVersion()}};
  for (const auto& [name, value] : kNames) {
    for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
      text.replace(at, name.size(), value);
    }
  }
  return text;
}

bool MatchesPattern(const char* pattern, const char* text) {
  if (*pattern == '*') return MatchesPattern(pattern + 1, text) || (*text && MatchesPattern(pattern, text + 1));
  if (*pattern != *text) return false;
  return !*pattern || MatchesPattern(pattern + 1, text + 1);
}

// The lines of both lists in one order, with the fewest differences.
Lines Compared(const Lines& announced, const Lines& came) {
  const std::size_t n = announced.size();
  const std::size_t m = came.size();
  std::vector<std::vector<std::size_t>> common(n + 1, std::vector<std::size_t>(m + 1));  // of what is left behind [i] and [j]
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = m; j-- > 0;) {
      common[i][j] = Matches(announced[i], came[j]) ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  Lines text;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < n || j < m) {
    if (i < n && j < m && Matches(announced[i], came[j])) {
      text.push_back("  " + came[j]);
      ++i, ++j;
    } else if (j == m || (i < n && common[i + 1][j] >= common[i][j + 1])) {
      text.push_back("- " + WithNames(announced[i++]));
    } else {
      text.push_back("+ " + came[j++]);
    }
  }
  return text;
}

void Compare(const char* what, const Lines& announced, const Lines& came, std::vector<Difference>& differences) {
  if (std::equal(announced.begin(), announced.end(), came.begin(), came.end(), &Matches)) return;
  differences.push_back({what, Compared(announced, came)});
}

}  // namespace

bool Matches(const std::string& announced, const std::string& line) {
  return MatchesPattern(WithNames(announced).c_str(), line.c_str());
}

FramedLog Framed(const Step& step) {
  if (step.frame == Frame::none) return {step.log, 0, 0};
  const Lines front = Joined(kGuardInstalled, Lines{"info wsc: wsc started: '\"{host}\" " + step.request + "'"});
  const Lines behind = step.frame == Frame::host ? Lines{kGuardUninstalled} : Lines{};
  return {Joined(front, step.log, behind), front.size(), behind.size()};
}

std::vector<Difference> Judge(const Step& step, const Outcome& outcome) {
  std::vector<Difference> differences;
  Lines dumps;
  for (const Dump& dump : step.dumps) dumps.push_back(DumpLine("unp*.mdmp", dump.exception, dump.comment));
  Compare("the step", {}, outcome.troubles, differences);
  if (!outcome.troubles.empty() && outcome.result.empty()) return differences;  // it was not played
  Compare("result", {Hex(step.result)}, {outcome.result}, differences);
  Compare("log", Framed(step).lines, outcome.log, differences);
  Compare("calls", step.calls, outcome.calls, differences);
  Compare("leaves", step.leaves, outcome.leaves, differences);
  Compare("dumps", dumps, outcome.dumps, differences);
  return differences;
}

}  // namespace crv::standins::tour
