// Values under HKEY_LOCAL_MACHINE, addressed by key path and value name. A read of what is missing or of another type gives
// nothing; a write creates the key; deleting what is missing succeeds. Every other failure throws crv::exceptions::error with the
// system's code. Any thread; what has to be read and written as one needs a NamedLock.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace crv::standins::registry {

bool KeyExists(const std::wstring& key);

std::vector<std::wstring> Subkeys(const std::wstring& key);     // their names; none when the key is missing
std::vector<std::wstring> ValueNames(const std::wstring& key);  // the same for its values

std::optional<std::wstring> ReadText(const std::wstring& key, const wchar_t* value);  // REG_SZ
std::optional<DWORD> ReadNumber(const std::wstring& key, const wchar_t* value);       // REG_DWORD
std::vector<std::wstring> ReadList(const std::wstring& key, const wchar_t* value);    // REG_MULTI_SZ

void WriteText(const std::wstring& key, const wchar_t* value, const std::wstring& text);
void WriteNumber(const std::wstring& key, const wchar_t* value, DWORD number);
void WriteList(const std::wstring& key, const wchar_t* value, const std::vector<std::wstring>& list);  // no empty strings

void DeleteValue(const std::wstring& key, const wchar_t* value);
void DeleteKey(const std::wstring& key);  // with everything below it

}  // namespace crv::standins::registry
