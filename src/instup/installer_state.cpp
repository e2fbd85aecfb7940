#include "instup/installer_state.h"

#include <windows.h>

#include "base/command_line.h"
#include "instup/find_installation.h"
#include "instup/folders.h"
#include "instup/launch_process.h"
#include "instup/path_text.h"
#include "instup/settings_file.h"

namespace crv::instup {
namespace {

constexpr wchar_t kInstaller[] = L"instup.exe";
constexpr wchar_t kInstallerLibrary[] = L"Instup.dll";
constexpr wchar_t kSettingsFile[] = L"setup.ini";
constexpr wchar_t kRebootMarker[] = L"Reboot.txt";

// Runs the installer without arguments, which writes its settings file anew, and waits for its end.
bool RunRepair(const std::wstring& installer) {
  CommandLine command_line;
  command_line.set_program(installer);
  std::uint32_t exit_code = 0;  // given so that the launch waits; the file alone tells whether the repair helped
  return LaunchProcess(command_line.text(), &exit_code);
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

bool SetupRecord::Read(const std::wstring& setup_folder) {
  folder = setup_folder;
  file = JoinPath(setup_folder, kSettingsFile);
  SettingsTree tree;
  if (!LoadSettingsFile(file, tree)) return false;
  new_directory_name = tree.Text(L"Common", L"NewDirectoryName", L"New");
  return true;
}

bool State::Locate() {
  InstallationInfo info;
  if (!FindInstallation(info)) return false;
  program_folder_ = info.program_folder;
  data_folder_ = info.data_folder;
  setup_folder_ = info.setup_folder;
  current_library_ = JoinPath(setup_folder_, kInstallerLibrary);
  current_installer_ = JoinPath(setup_folder_, kInstaller);

  if (!setup_record_.Read(setup_folder_)) {
    if (!RunRepair(current_installer_)) return false;
    if (!setup_record_.Read(setup_folder_)) return false;
  }

  // The installer's settings file must not make another folder's program run.
  if (LeadsOut(setup_record_.new_directory_name)) return false;
  const std::wstring new_folder = JoinPath(setup_folder_, setup_record_.new_directory_name);
  new_installer_ = JoinPath(new_folder, kInstaller);
  new_library_ = JoinPath(new_folder, kInstallerLibrary);
  return true;
}

bool CheckRebootMarker(bool& reboot) {
  State state;
  const bool located = state.Locate();
  reboot = IsFile(JoinPath(GetPersistentDataFolder(), kRebootMarker));
  return located;
}

}  // namespace crv::instup
