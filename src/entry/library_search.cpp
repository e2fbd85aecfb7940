#include "entry/library_search.h"

#include <windows.h>

#include "platform/dll_directory.h"
#include "root/proc_address.h"

namespace crv::wsc {

void LeaveCurrentFolderOutOfLibrarySearch() {
  const HMODULE kernel32 = GetModuleHandleW(L"kernel32");
  auto* const get = root::FindFunction<DWORD WINAPI(DWORD size, wchar_t * folder)>(kernel32, "GetDllDirectoryW");
  auto* const set = root::FindFunction<BOOL WINAPI(const wchar_t* folder)>(kernel32, "SetDllDirectoryW");
  if (!get || !set) return;
  wchar_t nothing;
  const bool has_own_folder = get(1, &nothing) != 0;  // the size that it needs
  if (!has_own_folder) set(platform::EmptyDllDirectory().c_str());
}

}  // namespace crv::wsc
