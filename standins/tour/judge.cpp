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

void Replace(const std::string& name, const std::string& value, std::string& text) {
  for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
    text.replace(at, name.size(), value);
  }
}

void Compare(const char* what, const Lines& announced, const Lines& came, DWORD parent, std::vector<Difference>& differences) {
  Lines named;
  for (const std::string& line : announced) named.push_back(WithNames(line, parent));
  if (!AllMatch(named, came)) differences.push_back({what, Compared(named, came)});
}

}  // namespace

std::string WithNames(std::string text, DWORD parent) {
  static const std::pair<std::string, std::string> kNames[] = {
      {"{host}", ToUtf8(Beside(L"wsc_proxy.exe"))},
      {"{suite}", ToUtf8(Beside(L"")).substr(0, ToUtf8(Beside(L"")).size() - 1)},
      {"{log}", ToUtf8(LogFolder())},
      {"{version}", ModuleVersion()}};
  for (const auto& [name, value] : kNames) Replace(name, value, text);
  Replace("{parent}", std::to_string(parent), text);
  return text;
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
  for (const Dump& dump : step.dumps) dumps.push_back(DumpLine("unp*.mdmp", dump.exception, dump.comment, dump.build));
  Compare("the step", {}, outcome.troubles, outcome.parent, differences);
  if (!outcome.troubles.empty() && outcome.result.empty()) return differences;  // it was not played
  Compare("result", {Hex(step.result)}, {outcome.result}, outcome.parent, differences);
  Compare("log", Framed(step).lines, outcome.log, outcome.parent, differences);
  Compare("calls", step.calls, outcome.calls, outcome.parent, differences);
  Compare("leaves", step.leaves, outcome.leaves, outcome.parent, differences);
  Compare("dumps", dumps, outcome.dumps, outcome.parent, differences);
  return differences;
}

}  // namespace crv::standins::tour
