// centre.exe: shows the stand-ins to a person, scripts them, and runs the host. Ends with 0 for success, 1 for a failure or a
// result of the host other than 0, 2 for words that it does not understand.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "centre/run_command.h"
#include "shared/commands.h"
#include "shared/console.h"

namespace crv::standins::centre {
namespace {

constexpr wchar_t kHelp[] = L"help";
constexpr wchar_t kRun[] = L"run";  // takes its words unparsed

void Help() {
  std::vector<Command> commands = Commands();
  const Command own[] = {
      {kHelp, L"", L"this text", 0, 0, nullptr},
      {kRun, L"TAIL...", L"runs wsc_proxy.exe with the tail and shows what came of it", 0, kAnyNumber, nullptr}};
  commands.insert(commands.begin(), std::begin(own), std::end(own));
  PrintLine(L"centre COMMAND: works the stand-ins that lie beside it");
  PrintLine();
  for (const Command& command : commands) {
    PrintLine(L"  " + std::wstring(command.name) + (*command.arguments ? L" " : L"") + command.arguments);
    PrintLine(L"      " + std::wstring(command.purpose));
  }
}

int Run(const Words& words) {
  if (!words.empty() && words[0] == kRun) return RunHost(Tail(GetCommandLineW(), 2));
  if (words.size() > 2 && words[0] == kWaitAnd) {
    Sleep(NumberFrom(words[1]));
    RunCommand(Words(words.begin() + 2, words.end()));
  } else if (words.size() == 1 && words[0] == kHelp) {
    Help();
  } else {
    RunCommand(words);
  }
  return 0;
}

int Complain(int status, const std::wstring& text) {
  PrintError(L"centre: " + text);
  return status;
}

}  // namespace
}  // namespace crv::standins::centre

int main() {
  using namespace crv::standins;
  using namespace crv::standins::centre;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  try {
    return centre::Run(Words(words + std::min(count, 1), words + count));
  } catch (const UsageError& error) {
    Complain(2, error.text);
    Help();
    return 2;
  } catch (const crv::exceptions::fatal& error) {
    return Complain(2, crv::FromUtf8(error.what()));
  } catch (const crv::exceptions::error& error) {
    wchar_t code[32];
    _snwprintf(code, std::size(code), L" (0x%08x)", static_cast<unsigned>(error.code()));
    return Complain(1, crv::FromUtf8(error.what()) + code);
  }
}
