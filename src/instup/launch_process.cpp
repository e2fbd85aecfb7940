#include "instup/launch_process.h"

#include <windows.h>

#include "root/scoped_handle.h"

namespace crv::instup {

bool LaunchProcess(const std::wstring& command_line, std::uint32_t* exit_code) {
  std::wstring writable = command_line;  // CreateProcessW writes into it
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  // Suspended until it may take the foreground.
  if (!CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED | NORMAL_PRIORITY_CLASS, nullptr,
                      nullptr, &startup, &started)) {
    return false;
  }
  const root::ScopedKernelHandle process(started.hProcess);
  const root::ScopedKernelHandle thread(started.hThread);
  AllowSetForegroundWindow(started.dwProcessId);
  ResumeThread(thread.get());
  if (exit_code) {
    WaitForSingleObject(process.get(), INFINITE);
    DWORD code = 0;
    if (GetExitCodeProcess(process.get(), &code)) *exit_code = code;
  }
  return true;
}

}  // namespace crv::instup
