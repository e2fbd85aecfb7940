// crasher.exe: a host that crashes on purpose, guarded as wsc.dll guards its host. One process, one crash.
//
//   crasher CASE [/folder:F] [/dumper:F] [/flags:HEX] [/limit:N] [/ratio:N] [/pretend:WORD] [/log:WORD]
//                [/handler:WORD]
//   crasher watch ...      the same in a child process: prints its process id, whether it had to be ended, and its whole exit code;
//                          with /signal it hands the child an event by CRV_CRASH_SIGNAL_EVENT, and ends it once that is set
//   crasher list           the cases
//
// Dumps and wsc.log go to the folder /folder, by default the suite's log folder. The status of the install is printed.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <string>

#include "base/command_line.h"
#include "base/log.h"
#include "crasher/stage.h"
#include "entry/log_folder.h"
#include "root/scoped_handle.h"

namespace crv::standins::crasher {
namespace {

// The status of words that are not understood.
int WrongUsage(const wchar_t* what, const std::wstring& word) {
  std::printf(
      "crasher: %ls '%ls'; 'crasher list' shows the cases, which take /folder: /dumper: /flags: /limit: /ratio: /pretend: "
      "/log: /handler:\n",
      what, word.c_str());
  return 2;
}

constexpr DWORD kLongestRun = 120'000;  // ms
constexpr DWORD kMoment = 300;          // ms, in which a process that is not held would have ended
constexpr const wchar_t* kOptions[] = {L"folder",  L"dumper", L"flags", L"limit",  L"ratio",
                                       L"pretend", L"signal", L"log",   L"handler"};

const Case* Find(const std::wstring& name) {
  for (const Case* const list : {kFaults, kInstallations}) {
    for (const Case* c = list; c->name; ++c) {
      if (name == c->name) return c;
    }
  }
  return nullptr;
}

int List() {
  for (const Case* const list : {kFaults, kInstallations}) {
    for (const Case* c = list; c->name; ++c) std::printf("%-24ls %ls\n", c->name, c->purpose);
  }
  return 0;
}

// An event that the child inherits and is told of.
root::ScopedKernelHandle OfferSignal() {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  root::ScopedKernelHandle event(CreateEventW(&inherited, TRUE, FALSE, nullptr));
  wchar_t text[16];
  _snwprintf(text, std::size(text), L"0x%08X", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(event.get())));
  SetEnvironmentVariableW(L"CRV_CRASH_SIGNAL_EVENT", text);
  return event;
}

int Watch(std::wstring command_line, bool signal) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const root::ScopedKernelHandle event = signal ? OfferSignal() : root::ScopedKernelHandle();
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION information = {};
  if (!CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &information)) {
    std::printf("not started: %lu\n", GetLastError());
    return 1;
  }
  const root::ScopedKernelHandle process(information.hProcess);
  const root::ScopedKernelHandle thread(information.hThread);
  const HANDLE ends[] = {process.get(), event.get()};
  const DWORD end = WaitForMultipleObjects(signal ? 2 : 1, ends, FALSE, kLongestRun);
  if (end != WAIT_OBJECT_0) {
    // The one that was told of the event sleeps until it is ended.
    const bool held = end == WAIT_OBJECT_0 + 1 && WaitForSingleObject(process.get(), kMoment) == WAIT_TIMEOUT;
    std::puts(held ? "held" : "hung");
    TerminateProcess(process.get(), ERROR_TIMEOUT);
    WaitForSingleObject(process.get(), 10'000);
  }
  DWORD exit_code = 0;
  GetExitCodeProcess(process.get(), &exit_code);
  std::printf("process %lu\nexit 0x%08lx\n", information.dwProcessId, exit_code);
  return 0;
}

unsigned long Number(const CommandLine& words, const wchar_t* name, int base, unsigned long usual) {
  return words.has(name) ? std::wcstoul(words.value(name).c_str(), nullptr, base) : usual;
}

int Run(const Case& chosen, const CommandLine& words) {
  Stage stage;
  stage.folder = words.has(L"folder") ? words.value(L"folder") : wsc::LogFolder();
  stage.dumper_folder = words.value(L"dumper");
  stage.flags = Number(words, L"flags", 16, stage.flags);
  stage.limit = static_cast<std::int32_t>(Number(words, L"limit", 10, stage.limit));
  if (words.has(L"pretend") && !Pretend(words.value(L"pretend"))) return WrongUsage(L"cannot pretend", words.value(L"pretend"));
  log::OpenLogFile(stage.folder + L"\\wsc.log");
  stage.guard = crashguard::AcquireCrashGuard();
  stage.guard->SetFullDumpRatio(static_cast<std::int32_t>(Number(words, L"ratio", 10, 0)));
  if (!chosen.installs_itself) std::printf("install %u\n", static_cast<unsigned>(stage.Install()));
  std::fflush(stdout);
  if (words.has(L"handler") && !SpoilHandler(stage, words.value(L"handler")))
    return WrongUsage(L"no handler", words.value(L"handler"));
  if (words.has(L"log") && !SpoilLog(words.value(L"log"))) return WrongUsage(L"no log", words.value(L"log"));
  return chosen.run(stage);
}

int Main() {
  CommandLine words;
  words.parse(GetCommandLineW());
  if (words.words().empty()) return WrongUsage(L"a case is missing in", GetCommandLineW());
  const std::wstring first = words.words()[0];
  for (const auto& [name, value] : words.switches()) {
    const auto same = [&](const wchar_t* option) { return _wcsicmp(option, name.c_str()) == 0; };
    if (std::none_of(std::begin(kOptions), std::end(kOptions), same)) return WrongUsage(L"there is no option", name);
  }
  if (first == L"list") return List();
  if (first == L"watch") {
    std::wstring command_line = GetCommandLineW();
    const std::size_t at = command_line.find(L" watch ");
    if (at == std::wstring::npos) return WrongUsage(L"a case is missing behind", first);
    return Watch(command_line.erase(at, 6), words.has(L"signal"));
  }
  const Case* const chosen = Find(first);
  return chosen ? Run(*chosen, words) : WrongUsage(L"there is no case", first);
}

}  // namespace
}  // namespace crv::standins::crasher

// Not caught: what nobody catches is one of the cases.
int main() { return crv::standins::crasher::Main(); }
