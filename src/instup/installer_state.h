// Where the suite's installer is: the current one in the setup folder, and the new one in the sub-folder that the installer's own
// settings file names. A State lives for one operation and is used by one thread.
#pragma once

#include <string>

namespace crv::instup {

// What the module takes from "setup.ini".
struct SetupRecord {
  std::wstring folder;              // the setup folder
  std::wstring file;                // "setup.ini" in it
  std::wstring new_directory_name;  // "NewDirectoryName" of section "Common", "New" when the key is missing

  // Points the record at the folder and reads its file. Returns false, with the last error of LoadSettingsFile, when the file
  // cannot be read; the name then stays as it was.
  [[nodiscard]] bool Read(const std::wstring& setup_folder);
};

class State {
 public:
  State() = default;
  virtual ~State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Fills the State from the registry and "setup.ini". When the file cannot be read, runs the current installer once without
  // arguments, which repairs it, and waits for it without a limit. Returns false when no installation is registered, the file is
  // unreadable after that or the name in it leads out of the setup folder; new installers that an earlier call located then
  // stay. Throws as LaunchProcess does.
  [[nodiscard]] bool Locate();

  const std::wstring& program_folder() const { return program_folder_; }
  const std::wstring& data_folder() const { return data_folder_; }
  const std::wstring& setup_folder() const { return setup_folder_; }
  const std::wstring& current_library() const { return current_library_; }
  const std::wstring& new_library() const { return new_library_; }
  const std::wstring& current_installer() const { return current_installer_; }
  const std::wstring& new_installer() const { return new_installer_; }
  const SetupRecord& setup_record() const { return setup_record_; }

 private:
  std::wstring program_folder_;
  std::wstring data_folder_;
  std::wstring setup_folder_;
  std::wstring current_library_;
  std::wstring new_library_;
  std::wstring current_installer_;
  std::wstring new_installer_;
  SetupRecord setup_record_;
};

// Locates a fresh State, which may run the installer, and returns what Locate returned. `reboot` is set when the persistent data
// folder holds the file "Reboot.txt" and cleared otherwise; it means something only when the result is true. Throws what
// GetPersistentDataFolder throws.
[[nodiscard]] bool CheckRebootMarker(bool& reboot);

}  // namespace crv::instup
