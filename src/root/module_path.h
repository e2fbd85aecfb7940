// The file behind a loaded module, asked from the memory mapping and not from the loader, whose name another program may have
// changed. Failures throw `crv::exceptions::error`. No state; any thread.
#pragma once

#include <windows.h>

#include <string>

namespace crv::root {

// The module's path as NtPathToWin32Path gives it (nt_path.h); null means the host executable. Throws with the last error and
// "Unable to retrieve the path of the module!", or as NtPathToWin32Path does.
std::wstring GetModulePath(HMODULE module);

// The same of the library that this code is linked into.
std::wstring GetThisModulePath();

}  // namespace crv::root
