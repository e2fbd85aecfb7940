#include "instup/find_installation.h"

#include <windows.h>

#include "instup/folder_value.h"
#include "instup/path_text.h"
#include "instup/product_key.h"
#include "root/registry.h"

namespace crv::instup {
namespace {

struct ProductKey {
  const wchar_t* path;
  const wchar_t* program_folder_value;
  const wchar_t* data_folder_value;  // null when the key has none
};

// From the newest to the oldest; the last is that of version 4.
constexpr ProductKey kProductKeys[] = {
    {kProductKey, kProgramFolderValue, kDataFolderValue},
    {L"SOFTWARE\\Vantor Software\\Corvid", kProgramFolderValue, kDataFolderValue},
    {L"SOFTWARE\\Vantor Software\\Corvid\\5.0", kProgramFolderValue, kDataFolderValue},
    {L"SOFTWARE\\Vantor Software\\Corvid\\4.0", L"Corvid4ProgramFolder", nullptr},
};

constexpr REGSAM kOwnView = 0;
constexpr REGSAM kViews[] = {kOwnView, KEY_WOW64_64KEY};

bool ReadFolders(const ProductKey& key, REGSAM view, InstallationInfo& info) {
  if (!ReadFolderValue(key.path, key.program_folder_value, info.program_folder, view)) return false;
  return !key.data_folder_value || ReadFolderValue(key.path, key.data_folder_value, info.data_folder, view);
}

void ReadSetup(const ProductKey& key, REGSAM view, InstallationInfo& info) {
  if (!ReadFolderValue(key.path, L"SetupFolder", info.setup_folder, view)) {
    info.setup_folder = JoinPath(info.program_folder, L"setup");
  }
  if (!root::QueryString(HKEY_LOCAL_MACHINE, key.path, L"Version", info.version, view)) info.version.clear();
  if (!root::QueryDword(key.path, L"SetupVersion", info.setup_version, view)) info.setup_version = kNoSetupVersion;
}

}  // namespace

bool FindInstallation(InstallationInfo& info) {
  for (const REGSAM view : kViews) {
    for (const ProductKey& key : kProductKeys) {
      if (!ReadFolders(key, view, info)) continue;
      ReadSetup(key, view, info);
      SetLastError(ERROR_SUCCESS);
      return true;
    }
  }
  return false;
}

}  // namespace crv::instup
