// The suite's folders as its installer wrote them into the registry. No state; any thread.
#pragma once

#include <windows.h>

#include <string>

namespace crv::instup {

// Reads the value as root::QueryString does, below HKEY_LOCAL_MACHINE, and refuses with ERROR_INVALID_DATA (13) what is no whole
// path: an empty text, as a broken uninstallation leaves it, and a relative one would name whatever lies in the current folder.
[[nodiscard]] bool ReadFolderValue(const wchar_t* key, const wchar_t* name, std::wstring& folder, REGSAM view) noexcept;

}  // namespace crv::instup
