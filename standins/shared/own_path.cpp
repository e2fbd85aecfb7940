#include "shared/own_path.h"

#include <windows.h>

namespace crv::standins {

std::wstring OwnPath() {
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const wchar_t*>(&OwnPath), &self);
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

}  // namespace crv::standins
