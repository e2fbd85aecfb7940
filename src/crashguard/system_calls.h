// What the crash guard asks of system libraries that the module does not import. Bound when the guard is made, so that nothing is loaded
// while a crash is handled; a function that could not be had stays null, and its user goes without. Any thread.
#pragma once

#include <windows.h>

#include <shlwapi.h>

#include "root/system_library.h"

namespace crv::crashguard {

struct SystemCalls {
  using CreateFolder = int WINAPI(HWND window, const wchar_t* path);

  decltype(PathAppendW)* const path_append = root::FindSystemFunction<decltype(PathAppendW)>(L"shlwapi.dll", "PathAppendW");
  // Windows XP has no name for SHCreateDirectory, and every version has the number.
  CreateFolder* const create_folder = root::FindSystemFunction<CreateFolder>(L"shell32.dll", MAKEINTRESOURCEA(165));
  decltype(GetSystemMetrics)* const system_metrics =
      root::FindSystemFunction<decltype(GetSystemMetrics)>(L"user32.dll", "GetSystemMetrics");
};

}  // namespace crv::crashguard
