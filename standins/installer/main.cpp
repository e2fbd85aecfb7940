// instup.exe, the suite's installer, as far as the module drives it: notes each start, takes the time that it is told to, changes or
// writes setup.ini, and ends with the code that it is told to. With "wait" it works before it ends; without, it ends at once.
#include <windows.h>

#include <string>

#include "base/command_line.h"
#include "base/exceptions.h"
#include "installation/control.h"
#include "installer/control.h"
#include "root/process.h"
#include "root/scoped_handle.h"

using namespace crv;
using namespace crv::standins;

namespace {

constexpr DWORD kUnknownOperation = 87;

// The setup folder: that of the program, or the one above it when the program is a copy in the new folder.
std::wstring SetupFolder() {
  wchar_t path[32768] = {};
  GetModuleFileNameW(nullptr, path, 32768);
  std::wstring folder(path);
  folder.resize(folder.rfind(L'\\'));
  const std::wstring above = folder.substr(0, folder.rfind(L'\\'));
  const bool is_copy = GetFileAttributesW((above + L"\\instup.exe").c_str()) != INVALID_FILE_ATTRIBUTES;
  return is_copy ? above : folder;
}

void MoveNewInstaller(const std::wstring& setup_folder, const std::wstring& new_directory) {
  const std::wstring folder = setup_folder + L"\\" + new_directory;
  CreateDirectoryW(folder.c_str(), nullptr);
  CopyFileW((setup_folder + L"\\instup.exe").c_str(), (folder + L"\\instup.exe").c_str(), FALSE);
  WriteSetupSettings(setup_folder, new_directory);
}

// Takes that many ms, unless the process that waits for the installer ends before.
void WorkFor(DWORD duration) {
  const root::ScopedKernelHandle starter(OpenProcess(SYNCHRONIZE, FALSE, root::GetParentProcessId()));
  if (!starter || WaitForSingleObject(starter.get(), duration) == WAIT_FAILED) Sleep(duration);
}

DWORD Work(const std::wstring& operation, bool wait) {
  const InstallerBehaviour behaviour = ReadInstallerBehaviour(operation);
  BeginInstallerRun(GetCommandLineW());  // now somebody who waits for it may tell the next run how to go
  if (wait) WorkFor(behaviour.duration);
  const std::wstring setup_folder = SetupFolder();
  if (!behaviour.new_directory.empty()) {
    MoveNewInstaller(setup_folder, behaviour.new_directory);
  } else if (operation == kRepair && behaviour.exit_code == 0) {
    MoveNewInstaller(setup_folder, L"New");
  }
  if (behaviour.remove_settings) DeleteFileW((setup_folder + L"\\setup.ini").c_str());
  if (behaviour.leave_reboot) LeaveRebootMarker();
  return behaviour.exit_code;
}

DWORD Run() {
  CommandLine command_line;
  command_line.parse(GetCommandLineW());
  if (command_line.switches().empty() && command_line.words().empty()) return Work(kRepair, true);
  for (const wchar_t* const operation : {kUpdateSetup, kUpdateProgram}) {
    if (command_line.value(L"instop") == operation) return Work(operation, command_line.has(L"wait"));
  }
  BeginInstallerRun(GetCommandLineW());
  return kUnknownOperation;
}

}  // namespace

int main() {
  try {
    const DWORD exit_code = Run();
    EndInstallerRun(GetCommandLineW(), exit_code);
    return static_cast<int>(exit_code);
  } catch (const exceptions::detail::base& failure) {
    return static_cast<int>(failure.code());
  }
}
