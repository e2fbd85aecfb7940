// The stand-in for the suite's installer (instup.exe): which runs it made and how each operation goes. Everything lies in the
// registry. Failures to reach it throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Installer
//     Runs                       list, the exact command line of each run, oldest first, and " = 0x<its exit code>" behind those that
//                                have ended; "beside another run: " before one that began while another one had not ended
//     <operation>\ExitCode       DWORD, absent: 0
//     <operation>\Duration       DWORD, ms that the run takes while somebody waits for it; absent: none
//     <operation>\NewDirectory   text, what the run writes as NewDirectoryName into setup.ini beside the current installer, with a
//                                copy of the installer in that folder
//     <operation>\LeaveReboot    DWORD 1: the run leaves Reboot.txt in the persistent data folder
//     <operation>\RemoveSettings DWORD 1: the run deletes setup.ini
//
// Operations are "update_setup", "update_vps_and_program" and "repair", a run without arguments. A repair writes setup.ini unless it
// is told to end with another code than 0.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::standins {

inline constexpr wchar_t kInstallerKey[] = L"SOFTWARE\\Corvid Stand-ins\\Installer";
inline constexpr wchar_t kUpdateSetup[] = L"update_setup";
inline constexpr wchar_t kUpdateProgram[] = L"update_vps_and_program";
inline constexpr wchar_t kRepair[] = L"repair";
inline constexpr const wchar_t* kInstallerOperations[] = {kUpdateSetup, kUpdateProgram, kRepair};

struct InstallerBehaviour {
  DWORD exit_code = 0;
  DWORD duration = 0;          // ms
  std::wstring new_directory;  // empty: stays
  bool leave_reboot = false;
  bool remove_settings = false;
};

InstallerBehaviour ReadInstallerBehaviour(const std::wstring& operation);
void ScriptInstaller(const std::wstring& operation, const InstallerBehaviour& behaviour);

std::vector<std::wstring> InstallerRuns();

// For the installer, at the start and at the end of a run.
void BeginInstallerRun(const std::wstring& command_line);
void EndInstallerRun(const std::wstring& command_line, DWORD exit_code);

void ClearInstaller();

}  // namespace crv::standins
