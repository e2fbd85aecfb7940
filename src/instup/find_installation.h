// Finds the installed suite, a current or an older one, by its registry keys. Every call reads anew. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::instup {

inline constexpr std::uint32_t kNoSetupVersion = 0xFFFFFFFF;

struct InstallationInfo {
  std::wstring program_folder;
  std::wstring data_folder;   // stays as it was for the oldest key, which has none
  std::wstring setup_folder;  // of the suite's installer
  std::wstring version;       // empty when the key has none
  std::uint32_t setup_version = kNoSetupVersion;
};

// Looks through the product keys from the newest to the oldest, first in the process's own registry view and then in the 64-bit
// one, and fills `info` from the first key that names all of its folders; a value that is no whole path names none
// (folder_value.h). Returns false when no key does; the folders may then hold what was read from incomplete keys. Start
// from a fresh `info`. The last error is 0 after success, otherwise that of the last read.
[[nodiscard]] bool FindInstallation(InstallationInfo& info);

}  // namespace crv::instup
