#include "instup/installer_state.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>

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

// The path as the system reads it, without "." and ".." and with a backslash at its end; empty when it cannot be read.
std::wstring FullPath(const std::wstring& path) {
  std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');  // room for the terminating NUL as well
  full.resize(std::min<std::size_t>(full.size(), GetFullPathNameW(path.c_str(), full.size(), full.data(), nullptr)));
  if (!full.empty() && full.back() != L'\\') full += L'\\';
  return full;
}

// The installer's settings file must not make another folder's program run.
bool LiesIn(const std::wstring& folder, const std::wstring& path) {
  const std::wstring outer = FullPath(folder);
  return !outer.empty() && _wcsnicmp(FullPath(path).c_str(), outer.c_str(), outer.size()) == 0;
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

  const std::wstring new_folder = JoinPath(setup_folder_, setup_record_.new_directory_name);
  if (!LiesIn(setup_folder_, new_folder)) return false;
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
