#include "avmgr/elevated.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdint>
#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "root/module_path.h"
#include "root/process.h"
#include "root/scoped_handle.h"
#include "root/system_library.h"
#include "root/token.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

constexpr std::uint32_t kElevationRequired = 740;  // ERROR_ELEVATION_REQUIRED, of Windows Vista's headers

// Set in the environment of a restarted host alone, which tells it that restarting once more leads nowhere.
constexpr wchar_t kRestartedMark[] = L"CRV_WSC_RESTARTED";

// Whether this host is a restarted one. The mark goes, so that programs started from here do not take themselves for one.
bool TakeRestartedMark() {
  wchar_t mark;
  if (GetEnvironmentVariableW(kRestartedMark, &mark, 1) == 0) return false;
  SetEnvironmentVariableW(kRestartedMark, nullptr);
  return true;
}

// ShellExecuteExW with the mark in the environment that the new process is given, which is this process's own meanwhile. With
// SEE_MASK_NOASYNC the process has its environment when the call returns.
bool ExecuteMarked(SHELLEXECUTEINFOW& execute) {
  const auto shell_execute = root::FindSystemFunction<decltype(ShellExecuteExW)>(L"shell32.dll", "ShellExecuteExW");
  if (!shell_execute || !SetEnvironmentVariableW(kRestartedMark, L"1")) return false;
  const bool started = shell_execute(&execute);
  const DWORD error = GetLastError();
  SetEnvironmentVariableW(kRestartedMark, nullptr);
  SetLastError(error);
  return started;
}

// The elevated host; empty when the system handed back no process.
root::ScopedKernelHandle RestartElevated(const CommandLine& command_line) {
  const std::wstring host = root::GetModulePath(nullptr);
  const std::wstring arguments = command_line.arguments();
  SHELLEXECUTEINFOW execute = {};
  execute.cbSize = sizeof(execute);
  execute.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_UNICODE;
  execute.lpVerb = L"runas";
  execute.lpFile = host.c_str();
  execute.lpParameters = arguments.c_str();
  execute.nShow = SW_SHOWNORMAL;
  if (!ExecuteMarked(execute)) {
    const DWORD error = GetLastError();
    throw exceptions::error(error, L"cannot run elevated process '%ls'", command_line.text().c_str());
  }
  return root::ScopedKernelHandle(execute.hProcess);
}

}  // namespace

void run_elevated(const CommandLine& command_line, const std::function<void()>& action) {
  const bool restarted = TakeRestartedMark();
  if (root::RunningUnderAdminAccount()) return action();
  if (restarted) throw exceptions::error(kElevationRequired, "restarted wsc_proxy has no administrator rights");
  log::Info(tag, L"Restarting wsc_proxy.exe elevated.");
  const root::ScopedKernelHandle process = RestartElevated(command_line);
  if (!process) return;
  const std::uint32_t exit_code = root::WaitForExitCode(process.get());
  if (exit_code != 0) throw exceptions::error(exit_code, "elevated wsc_proxy ended with error");
}

}  // namespace crv::wsc
