#include "platform/dll_directory.h"

#include <windows.h>

namespace crv::platform {

std::wstring EmptyDllDirectory() {
  if (!GetProcAddress(GetModuleHandleW(L"ntdll"), "wine_get_version")) return L"";
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  return system;
}

}  // namespace crv::platform
