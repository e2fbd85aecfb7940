#include "shared/commands.h"

#include <windows.h>
#include <shellapi.h>

#include <optional>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "shared/console.h"

namespace crv::standins {
namespace {

template <void (*Area::*Step)()>
void ForEachArea(const Words&) {
  for (const Area* const area : Areas()) {
    if (area->*Step) (area->*Step)();
  }
}

// What one area fails at keeps no other from being installed.
void Install(const Words&) {
  std::optional<exceptions::error> failure;
  for (const Area* const area : Areas()) {
    try {
      if (area->install) area->install();
    } catch (const exceptions::error& error) {
      if (!failure) failure = error;
    }
  }
  if (failure) throw *failure;
}

void Show(const Words&) {
  bool first = true;
  for (const Area* const area : Areas()) {
    const Table table = area->table ? area->table() : Table();
    if (table.empty()) continue;
    if (!first) PrintLine();
    first = false;
    PrintTable(table);
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

void Pause(const Words& words) { Sleep(NumberFrom(words[0])); }

void Later(const Words& words) { RunLater(NumberFrom(words[0]), Words(words.begin() + 1, words.end())); }

const Command kCommands[] = {
    {L"install", L"", L"makes the stand-ins known to the machine", 0, 0, &Install},
    {L"uninstall", L"", L"takes that back", 0, 0, &ForEachArea<&Area::uninstall>},
    {L"show", L"", L"the products as Security Center knows them, and the rest of the stage", 0, 0, &Show},
    {L"journal", L"", L"the calls that the stand-ins were asked for", 0, 0, &ShowJournal},
    {L"script", L"NAME [ANSWER...]",
     L"the next answers of a call: ok, 0x8000000a, null, crash; \"forever ANSWER\", \"ANSWER xN\"", 1, kAnyNumber, &ScriptCall},
    {L"clear", L"", L"back to a healthy machine: no products, scripts, registered names, log or dumps; services run", 0, 0,
     &ForEachArea<&Area::clear>},
    {L"pause", L"MS", L"returns in MS milliseconds", 1, 1, &Pause},
    {L"later", L"MS COMMAND...", L"another command, run by itself in MS milliseconds; returns at once", 2, kAnyNumber, &Later},
};

}  // namespace

std::vector<Command> Commands() {
  std::vector<Command> commands(std::begin(kCommands), std::end(kCommands));
  for (const Area* const area : Areas()) commands.insert(commands.end(), area->commands.begin(), area->commands.end());
  return commands;
}

void RunCommand(const Words& words) {
  if (words.empty()) throw UsageError{L"a command is missing"};
  const Words rest(words.begin() + 1, words.end());
  for (const Command& command : Commands()) {
    if (words[0] != command.name) continue;
    if (rest.size() < command.fewest_words || rest.size() > command.most_words) {
      throw UsageError{words[0] + L" takes: " + (*command.arguments ? command.arguments : L"no words")};
    }
    return command.run(rest);
  }
  throw UsageError{L"unknown command '" + words[0] + L"'"};
}

void RunLine(const std::string& line) {
  const std::wstring command_line = L"centre " + FromUtf8(line);
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(command_line.c_str(), &count);
  const Words command(words + 1, words + count);
  LocalFree(words);
  RunCommand(command);
}

}  // namespace crv::standins
