#include "instup/folders.h"

#include <windows.h>

#include <shlobj.h>

#include "base/exceptions.h"
#include "instup/folder_value.h"
#include "instup/product_key.h"
#include "root/known_folder.h"

namespace crv::instup {

std::wstring GetDataFolder() { return root::GetKnownFolderPath(CSIDL_COMMON_APPDATA) + L"\\CORVID Software\\Corvid"; }

std::wstring GetPersistentDataFolder() {
  return root::GetKnownFolderPath(CSIDL_COMMON_APPDATA) + L"\\CORVID Software\\Persistent Data\\Corvid";
}

std::wstring GetProgramFolder() {
  std::wstring folder;
  if (!ReadFolderValue(kProductKey, kProgramFolderValue, folder, KEY_WOW64_32KEY)) {
    throw exceptions::error(GetLastError(), "Unable to retrieve path of the program directory!");
  }
  return folder;
}

}  // namespace crv::instup
