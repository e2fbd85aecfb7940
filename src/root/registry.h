// Small registry readers and writers. Each returns whether it succeeded and leaves the system's result code in the thread's
// last-error value, 0 after success; read it before anything else can change it. Outputs are written only on success. None of
// them throws or logs; a shortage of memory is ERROR_NOT_ENOUGH_MEMORY (8). They keep no state, so any thread may call them.
//
// `view` is KEY_WOW64_32KEY, KEY_WOW64_64KEY or 0 for the process's own view; it is added to the access that each helper asks
// for. A null root, and a null or empty subkey, are refused with ERROR_INVALID_PARAMETER (87). A null or empty value name is the
// key's default value.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace crv::root {

// Whether the key below HKEY_LOCAL_MACHINE can be opened for reading its values. A missing key is an answer and not an error:
// false with last error 0.
[[nodiscard]] bool KeyExists(const wchar_t* subkey, REGSAM view) noexcept;

// The value's bytes as they are stored, and its type. A value that grows while it is read is read again. Not for
// HKEY_PERFORMANCE_DATA, which does not tell the size of a value.
[[nodiscard]] bool QueryValue(HKEY root, const wchar_t* subkey, const wchar_t* name, std::vector<std::uint8_t>& data, DWORD& type,
                              REGSAM view) noexcept;

// The text of a REG_SZ or REG_EXPAND_SZ value up to its first NUL or its end; the environment variables that a REG_EXPAND_SZ
// value names are expanded. Another type, an odd number of bytes and a text that the system cuts while it expands it (over 32,766
// characters) are ERROR_INVALID_DATA (13).
[[nodiscard]] bool QueryString(HKEY root, const wchar_t* subkey, const wchar_t* name, std::wstring& value, REGSAM view) noexcept;

// A 4-byte REG_DWORD value below HKEY_LOCAL_MACHINE. Another type or size is ERROR_INVALID_DATA (13).
[[nodiscard]] bool QueryDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t& value, REGSAM view) noexcept;

// Writes a REG_DWORD value below HKEY_LOCAL_MACHINE; a missing key is made.
[[nodiscard]] bool SetDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t value, REGSAM view) noexcept;

// Deletes the key and everything below it, the deepest keys first. The first key that cannot be deleted ends it with that key's
// code; what was deleted until then stays deleted.
[[nodiscard]] bool DeleteKeyTree(HKEY root, const wchar_t* subkey, REGSAM view) noexcept;

}  // namespace crv::root
