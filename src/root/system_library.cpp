#include "root/system_library.h"

#include "platform/bounded_text.h"

namespace crv::root {

HMODULE GetSystemLibrary(const wchar_t* file) noexcept {
  wchar_t path[MAX_PATH];
  const UINT length = GetSystemDirectoryW(path, MAX_PATH);
  if (length == 0) return nullptr;
  if (length >= MAX_PATH || !platform::wcscat_s(path, MAX_PATH, L"\\") || !platform::wcscat_s(path, MAX_PATH, file)) {
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return nullptr;
  }
  // Whoever loaded it may free it again. A reference for each question would never be given back.
  HMODULE library = nullptr;
  return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, path, &library) ? library : LoadLibraryW(path);
}

}  // namespace crv::root
