// sweep_host.exe: a host of wsc.dll like wsc_proxy.exe, in which one call of the library fails as it was told to. It answers through
// the block of memory that control_block.h describes. Started without one it only carries out its command line.
#include <windows.h>
#include <winternl.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string>

#include "sweep/control_block.h"
#include "sweep/hooks.h"

using namespace crv::sweep;

namespace {

constexpr UINT kNoLibrary = 0xE0570001;
constexpr UINT kNoBlock = 0xE0570003;

using Run = DWORD(__stdcall*)(const wchar_t* command_line);

ControlBlock* MapBlock() {
  wchar_t name[128];
  const DWORD length = GetEnvironmentVariableW(kSectionVariable, name, std::size(name));
  if (length == 0 || length >= std::size(name)) return nullptr;
  SetEnvironmentVariableW(kSectionVariable, nullptr);  // not for the programs that the library starts
  const HANDLE section = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name);
  if (!section) ExitProcess(kNoBlock);
  void* const view = MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  CloseHandle(section);
  if (!view) ExitProcess(kNoBlock);
  return static_cast<ControlBlock*>(view);
}

std::wstring Beside(const wchar_t* name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring text = path;
  return text.substr(0, text.rfind(L'\\') + 1) + name;
}

// The suite's other libraries keep something each time they are freed, which must not count as the module's.
void KeepStandIns() {
  for (const wchar_t* const name :
       {L"cavm4h.dll", L"crvData.dll", L"security_center.dll", L"security_center_wmi.dll", L"wscapi.dll"}) {
    LoadLibraryExW(Beside(name).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  }
}

constexpr DWORD kBufferSize = 1024 * 1024;  // bytes
unsigned char buffer[kBufferSize];

DWORD CountHandles() {
  struct Entry {
    ULONG process;
    BYTE type, flags;
    USHORT value;
    void* object;
    ULONG access;
  };
  constexpr auto kHandles = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  if (NtQuerySystemInformation(kHandles, buffer, kBufferSize, nullptr) != 0) return 0;
  const auto* const entries = reinterpret_cast<const Entry*>(buffer + sizeof(ULONG));
  return static_cast<DWORD>(std::count_if(entries, entries + *reinterpret_cast<const ULONG*>(buffer),
                                          [](const Entry& entry) { return entry.process == GetCurrentProcessId(); }));
}

DWORD CountThreads() {
  if (NtQuerySystemInformation(SystemProcessInformation, buffer, kBufferSize, nullptr) != 0) return 0;
  for (const unsigned char* at = buffer;;) {
    const auto* const process = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
    if (reinterpret_cast<DWORD>(process->UniqueProcessId) == GetCurrentProcessId()) return process->NumberOfThreads;
    if (process->NextEntryOffset == 0) return 0;
    at += process->NextEntryOffset;
  }
}

[[gnu::noinline]] void Crash() {
  volatile char* volatile const nothing = nullptr;
  *nothing = 1;
}

}  // namespace

int main() {
  ControlBlock* const block = MapBlock();
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  // The first throw in a process makes objects of the runtime that stay; with this one every run has them.
  try {
    throw 0;
  } catch (int) {
  }
  if (block && block->twice) KeepStandIns();
  const DWORD begin = GetTickCount();
  if (block) InstallHooks(*block);
  const HMODULE library = LoadLibraryExW(Beside(L"wsc.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!library) {
    if (block) block->load_error = GetLastError();
    return static_cast<int>(kNoLibrary);
  }
  const auto run = reinterpret_cast<Run>(reinterpret_cast<void*>(GetProcAddress(library, "_run@4")));
  if (!block) ExitProcess(run(GetCommandLineW()));

  block->loaded = TRUE;
  EnterPhase(Phase::guard);
  block->result = run(block->command_line);
  if (block->twice) {
    block->handles_first = CountHandles();
    block->result = run(block->command_line);
  }
  block->returned = TRUE;
  EnterPhase(Phase::after);
  block->milliseconds = GetTickCount() - begin;
  block->handles = CountHandles();
  block->threads = CountThreads();
  if (block->after == After::crash) Crash();
  ExitProcess(block->result);
}
