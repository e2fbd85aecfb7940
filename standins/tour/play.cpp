#include "tour/play.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/commands.h"
#include "shared/dump_files.h"
#include "shared/log_tail.h"
#include "shared/places.h"
#include "shared/program.h"
#include "tour/judge.h"
#include "tour/stage.h"

namespace crv::standins::tour {
namespace {

constexpr DWORD kLongestStep = 120'000;  // ms; the longest one writes three dumps, each some seconds under Wine

// "date time process thread level tag text" to "level tag: text".
std::string WithoutStamp(const std::string& line) {
  std::istringstream words(line);
  std::string date, time, process, thread, level, tag, text;
  words >> date >> time >> process >> thread >> level >> tag;
  std::getline(words >> std::ws, text);
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return level + " " + tag + ": " + text;
}

Lines LogLines(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(WithoutStamp(line));
  std::erase_if(lines, &IsOfSystemsAge);
  return lines;
}

std::string FileName(const std::wstring& path) { return ToUtf8(path.substr(path.rfind(L'\\') + 1)); }

void SeeDumps(const std::vector<std::wstring>& before, Outcome& outcome) {
  for (const std::wstring& file : DumpFiles(LogFolder())) {
    if (std::find(before.begin(), before.end(), file) != before.end()) continue;
    outcome.dump_files.push_back(file);
    const DumpContent content = ReadDump(file);
    outcome.dumps.push_back(content.exception && content.comment
                                ? DumpLine(FileName(file), *content.exception, *content.comment, std::to_string(content.build))
                                : FileName(file) + " lacks its exception or its comment");
  }
}

void RunProcess(const Step& step, Outcome& outcome) {
  const bool crashes = !step.crash.empty();
  const wchar_t* const file = crashes ? L"crasher.exe" : L"wsc_proxy.exe";
  const std::wstring arguments = FromUtf8(crashes ? step.crash : step.request);
  const std::size_t options = step.through.find(' ');
  const std::wstring starter = FromUtf8(step.through.substr(0, options));
  const std::wstring in_front = options == std::string::npos ? L"" : FromUtf8(step.through.substr(options + 1)) + L" ";
  Program program(starter.empty() ? file : starter.c_str(),
                  starter.empty() ? arguments : in_front + Program::CommandLine(file, arguments), Output::nowhere);
  outcome.parent = starter.empty() ? GetCurrentProcessId() : program.id();
  for (const std::string& line : step.meanwhile) {
    if (!program.runs()) outcome.troubles.push_back("the process had to wait for: " + line);
    RunLine(line);
  }
  const std::optional<DWORD> result = program.Result(kLongestStep);
  outcome.result = result ? Hex(*result) : "none: killed after " + std::to_string(kLongestStep / 1000) + " s";
}

void PlayGuarded(const Step& step, Outcome& outcome) {
  for (const std::string& line : step.before) RunLine(WithNames(line, GetCurrentProcessId()));
  ForgetCalls();
  const Stage stage;
  const std::vector<std::wstring> dumps = DumpFiles(LogFolder());
  const LogTail log;
  RunProcess(step, outcome);
  outcome.log_text = log.Read();
  outcome.log = LogLines(outcome.log_text);
  outcome.calls = Calls();
  outcome.leaves = Stage().ChangesSince(stage);
  SeeDumps(dumps, outcome);
}

template <typename Work>
Lines TroublesOf(Work work) {
  try {
    work();
    return {};
  } catch (const UsageError& error) {
    return {ToUtf8(error.text)};
  } catch (const exceptions::detail::base& error) {
    return {error.what() + (" (" + Hex(error.code()) + ")")};
  }
}

}  // namespace

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, std::size(text), "0x%08x", static_cast<unsigned>(number));
  return text;
}

std::string DumpLine(const std::string& file_name, DWORD exception, const std::string& comment, const std::string& build) {
  return file_name + ", exception " + Hex(exception) + ", comment \"" + comment + "\", Windows build " + build;
}

Lines PrepareMachine(const Chapter& chapter) {
  return TroublesOf([&] {
    RunCommand({L"clear"});
    RunCommand({L"windows", FromUtf8(chapter.windows)});
  });
}

Lines LeaveMachineClean() {
  return TroublesOf([] { RunCommand({L"clear"}); });
}

Outcome Play(const Step& step) {
  Outcome outcome;
  const DWORD begin = GetTickCount();
  const Lines troubles = TroublesOf([&] { PlayGuarded(step, outcome); });
  outcome.troubles.insert(outcome.troubles.end(), troubles.begin(), troubles.end());
  outcome.duration = GetTickCount() - begin;
  return outcome;
}

}  // namespace crv::standins::tour
