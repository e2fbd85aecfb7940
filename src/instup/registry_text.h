// The common OS library's own way to read a text from the registry: roots by name, any value type taken as text, nothing
// expanded. The rest of the module uses root/registry.h. Both functions return a Windows error code, which is also left in the
// thread's last error; a shortage of memory is ERROR_NOT_ENOUGH_MEMORY (8). No state; any thread.
#pragma once

#include <windows.h>

#include <string>

namespace crv::instup {

// Opens a key below a root given by its exact name ("HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER", "HKEY_CLASSES_ROOT",
// "HKEY_USERS"), or below `parent` when that is given; the name then does not matter. The caller closes `*key`, which is written
// only on success. Another name (case matters), a null `key` or `subkey`, and neither a name nor a parent are
// ERROR_INVALID_PARAMETER (87).
[[nodiscard]] DWORD OpenRegistryKey(const wchar_t* root_name, const wchar_t* subkey, REGSAM access, HKEY parent, HKEY* key);

// Reads a value of whatever type as text: whole characters up to the first NUL. On failure `out` is empty.
[[nodiscard]] DWORD ReadRegistryString(HKEY key, const wchar_t* name, std::wstring& out);

}  // namespace crv::instup
