#include "avmgr/elevated.h"

#include <windows.h>

#include <shellapi.h>

#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "root/module_path.h"
#include "root/scoped_handle.h"
#include "root/token.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

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
  if (!ShellExecuteExW(&execute)) {
    const DWORD error = GetLastError();
    throw exceptions::error(error, L"cannot run elevated process '%ls'", command_line.text().c_str());
  }
  return root::ScopedKernelHandle(execute.hProcess);
}

}  // namespace

void run_elevated(const CommandLine& command_line, const std::function<void()>& action) {
  if (root::RunningUnderAdminAccount()) return action();
  log::Info(tag, L"Restarting wsc_proxy.exe elevated.");
  const root::ScopedKernelHandle process = RestartElevated(command_line);
  if (!process) return;
  WaitForSingleObject(process.get(), INFINITE);
  DWORD exit_code = 0;
  if (!GetExitCodeProcess(process.get(), &exit_code)) throw exceptions::error(GetLastError(), "GetExitCodeProcess");
  if (exit_code != 0) throw exceptions::error(exit_code, "elevated wsc_proxy ended with error");
}

}  // namespace crv::wsc
