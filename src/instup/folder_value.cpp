#include "instup/folder_value.h"

#include <utility>

#include "instup/path_text.h"
#include "root/registry.h"

namespace crv::instup {

bool ReadFolderValue(const wchar_t* key, const wchar_t* name, std::wstring& folder, REGSAM view) noexcept {
  std::wstring text;
  if (!root::QueryString(HKEY_LOCAL_MACHINE, key, name, text, view)) return false;
  if (!IsWholePath(text)) {
    SetLastError(ERROR_INVALID_DATA);
    return false;
  }
  folder = std::move(text);
  return true;
}

}  // namespace crv::instup
