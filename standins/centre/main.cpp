// centre.exe: shows the stand-ins to a person, scripts them, and runs the host. Ends with 0 for success, 1 for a failure or a
// result of the host other than 0, 2 for words that it does not understand.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/area.h"
#include "shared/console.h"
#include "centre/run_command.h"

namespace crv::standins::centre {

namespace {

constexpr wchar_t kRun[] = L"run";  // takes its words unparsed

void Help(const Words& words);

template <void (*Area::*Step)()>
void ForEachArea(const Words&) {
  for (const Area* const area : Areas()) {
    if (area->*Step) (area->*Step)();
  }
}

void Show(const Words&) {
  bool first = true;
  for (const Area* const area : Areas()) {
    if (!area->show) continue;
    if (!first) PrintLine();
    first = false;
    area->show();
  }
}

void ShowJournal(const Words&) {
  bool any = false;
  for (const Area* const area : Areas()) {
    if (!area->calls) continue;
    for (const std::wstring& call : area->calls->Journal()) {
      any = true;
      PrintLine(call);
    }
  }
  if (!any) PrintLine(L"(no calls)");
}

void ScriptCall(const Words& words) {
  const std::wstring& name = words[0];
  std::wstring known;
  for (const Area* const area : Areas()) {
    if (!area->calls) continue;
    for (const std::wstring& candidate : area->calls->Names()) {
      known += L"\r\n  " + candidate;
      if (candidate != name) continue;
      area->calls->Script(name, Words(words.begin() + 1, words.end()));
      return;
    }
  }
  throw UsageError{L"nothing to script is called '" + name + L"'; there are:" + known};
}

void Later(const Words& words) {
  if (words[1] == kRun) throw UsageError{L"a run cannot be put off"};
  RunLater(NumberFrom(words[0]), Words(words.begin() + 1, words.end()));
}

// The commands that concern every area; `run` stands here for the usage alone.
const Command kCommands[] = {
    {L"help", L"", L"this text", 0, 0, &Help},
    {L"install", L"", L"makes the stand-ins known to the machine", 0, 0, &ForEachArea<&Area::install>},
    {L"uninstall", L"", L"takes that back", 0, 0, &ForEachArea<&Area::uninstall>},
    {L"show", L"", L"the products as Security Center knows them, and the rest of the stage", 0, 0, &Show},
    {L"journal", L"", L"the calls that the stand-ins were asked for", 0, 0, &ShowJournal},
    {L"script", L"NAME [ANSWER...]",
     L"the next answers of a call: ok, 0x8000000a, null, crash; \"forever ANSWER\", \"ANSWER xN\"", 1, kAnyNumber, &ScriptCall},
    {L"clear", L"", L"back to a healthy machine: no products, scripts, registered names, log or dumps; services run", 0, 0,
     &ForEachArea<&Area::clear>},
    {L"later", L"MS COMMAND...", L"another command, run by itself in MS milliseconds; returns at once", 2, kAnyNumber, &Later},
    {kRun, L"TAIL...", L"runs wsc_proxy.exe with the tail and shows what came of it", 0, kAnyNumber, nullptr},
};

std::vector<Command> AllCommands() {
  std::vector<Command> commands(std::begin(kCommands), std::end(kCommands));
  for (const Area* const area : Areas()) commands.insert(commands.end(), area->commands.begin(), area->commands.end());
  return commands;
}

void Help(const Words&) {
  PrintLine(L"centre COMMAND: works the stand-ins that lie beside it");
  PrintLine();
  for (const Command& command : AllCommands()) {
    PrintLine(L"  " + std::wstring(command.name) + (*command.arguments ? L" " : L"") + command.arguments);
    PrintLine(L"      " + std::wstring(command.purpose));
  }
}

int Run(Words words) {
  if (words.empty()) throw UsageError{L"a command is missing"};
  const std::wstring name = words.front();
  words.erase(words.begin());
  if (name == kRun) return RunHost(Tail(GetCommandLineW(), 2));
  if (name == kWaitAnd && words.size() > 1) {
    Sleep(NumberFrom(words[0]));
    return centre::Run(Words(words.begin() + 1, words.end()));
  }
  for (const Command& command : AllCommands()) {
    if (name != command.name) continue;
    if (words.size() < command.fewest_words || words.size() > command.most_words) {
      throw UsageError{name + L" takes: " + (*command.arguments ? command.arguments : L"no words")};
    }
    command.run(words);
    return 0;
  }
  throw UsageError{L"unknown command '" + name + L"'"};
}

}  // namespace
}  // namespace crv::standins::centre

int main() {
  using namespace crv::standins;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  try {
    return centre::Run(Words(words + std::min(count, 1), words + count));
  } catch (const UsageError& error) {
    PrintError(error.text);
    centre::Help({});
    return 2;
  } catch (const crv::exceptions::fatal& error) {
    PrintError(crv::FromUtf8(error.what()));
    return 2;
  } catch (const crv::exceptions::error& error) {
    wchar_t code[32];
    _snwprintf(code, std::size(code), L" (0x%08x)", static_cast<unsigned>(error.code()));
    PrintError(crv::FromUtf8(error.what()) + code);
    return 1;
  }
}
