#include "shared/registry.h"

#include <shlwapi.h>

#include <cwchar>

#include "base/exceptions.h"
#include "root/scoped_handle.h"

namespace crv::standins::registry {
namespace {

// Another process may delete a key that is open here.
bool IsMissing(LSTATUS status) { return status == ERROR_FILE_NOT_FOUND || status == ERROR_KEY_DELETED; }

root::ScopedRegistryKey Open(const std::wstring& key, REGSAM access) {
  root::ScopedRegistryKey result;
  const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, access, result.put());
  if (IsMissing(status)) return {};
  if (status != ERROR_SUCCESS) throw exceptions::error(status, L"cannot open HKLM\\%s", key.c_str());
  return result;
}

// The raw data of a value of the given type, as whole characters.
std::optional<std::wstring> Read(const std::wstring& key, const wchar_t* value, DWORD type) {
  const root::ScopedRegistryKey opened = Open(key, KEY_QUERY_VALUE);
  if (!opened) return std::nullopt;
  // Another process may let the value grow between two calls.
  std::wstring data(256, L'\0');
  for (;;) {
    DWORD found = 0;
    DWORD size = static_cast<DWORD>(data.size() * sizeof(wchar_t));
    const LSTATUS status = RegQueryValueExW(opened.get(), value, nullptr, &found, reinterpret_cast<BYTE*>(data.data()), &size);
    if (IsMissing(status) || (status == ERROR_SUCCESS && found != type)) return std::nullopt;
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) {
      throw exceptions::error(status, L"cannot read HKLM\\%s, value %s", key.c_str(), value);
    }
    data.resize((size + sizeof(wchar_t) - 1) / sizeof(wchar_t));
    if (status == ERROR_SUCCESS) return data;
  }
}

void Write(const std::wstring& key, const wchar_t* value, DWORD type, const void* data, std::size_t size) {
  LSTATUS status = ERROR_KEY_DELETED;
  for (int attempt = 0; status == ERROR_KEY_DELETED && attempt < 10; ++attempt) {
    root::ScopedRegistryKey created;
    status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                             created.put(), nullptr);
    if (status == ERROR_SUCCESS) {
      status = RegSetValueExW(created.get(), value, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
    }
  }
  if (status != ERROR_SUCCESS) throw exceptions::error(status, L"cannot write HKLM\\%s, value %s", key.c_str(), value);
}

// All names that RegEnumKeyExW or RegEnumValueW gives.
template <typename Enumerate>
std::vector<std::wstring> Names(const std::wstring& key, REGSAM access, Enumerate enumerate) {
  std::vector<std::wstring> names;
  const root::ScopedRegistryKey opened = Open(key, access);
  if (!opened) return names;
  for (std::wstring name;; names.push_back(name)) {
    name.resize(16384);  // the longest that there is
    DWORD length = static_cast<DWORD>(name.size());
    const LSTATUS status =
        enumerate(opened.get(), static_cast<DWORD>(names.size()), name.data(), &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS || IsMissing(status)) return names;
    if (status != ERROR_SUCCESS) throw exceptions::error(status, L"cannot list HKLM\\%s", key.c_str());
    name.resize(length);
  }
}

}  // namespace

bool KeyExists(const std::wstring& key) { return static_cast<bool>(Open(key, KEY_QUERY_VALUE)); }

std::vector<std::wstring> Subkeys(const std::wstring& key) { return Names(key, KEY_ENUMERATE_SUB_KEYS, &RegEnumKeyExW); }

std::vector<std::wstring> ValueNames(const std::wstring& key) { return Names(key, KEY_QUERY_VALUE, &RegEnumValueW); }

std::optional<std::wstring> ReadText(const std::wstring& key, const wchar_t* value) {
  const std::optional<std::wstring> data = Read(key, value, REG_SZ);
  if (!data) return std::nullopt;
  return data->substr(0, data->find(L'\0'));
}

std::optional<DWORD> ReadNumber(const std::wstring& key, const wchar_t* value) {
  const std::optional<std::wstring> data = Read(key, value, REG_DWORD);
  if (!data || data->size() * sizeof(wchar_t) != sizeof(DWORD)) return std::nullopt;
  return static_cast<DWORD>((*data)[0]) | static_cast<DWORD>((*data)[1]) << 16;
}

std::vector<std::wstring> ReadList(const std::wstring& key, const wchar_t* value) {
  std::vector<std::wstring> list;
  const std::wstring data = Read(key, value, REG_MULTI_SZ).value_or(L"");
  for (std::size_t at = 0; at < data.size() && data[at];) {
    const std::size_t end = std::min(data.find(L'\0', at), data.size());
    list.push_back(data.substr(at, end - at));
    at = end + 1;
  }
  return list;
}

void WriteText(const std::wstring& key, const wchar_t* value, const std::wstring& text) {
  Write(key, value, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void WriteNumber(const std::wstring& key, const wchar_t* value, DWORD number) {
  Write(key, value, REG_DWORD, &number, sizeof(number));
}

void WriteList(const std::wstring& key, const wchar_t* value, const std::vector<std::wstring>& list) {
  std::wstring data;
  for (const std::wstring& text : list) data.append(text).push_back(L'\0');
  Write(key, value, REG_MULTI_SZ, data.c_str(), (data.size() + 1) * sizeof(wchar_t));
}

void DeleteValue(const std::wstring& key, const wchar_t* value) {
  const root::ScopedRegistryKey opened = Open(key, KEY_SET_VALUE);
  if (!opened) return;
  const LSTATUS status = RegDeleteValueW(opened.get(), value);
  if (status != ERROR_SUCCESS && !IsMissing(status)) {
    throw exceptions::error(status, L"cannot delete HKLM\\%s, value %s", key.c_str(), value);
  }
}

void DeleteKey(const std::wstring& key) {
  const LSTATUS status = SHDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
  if (status != ERROR_SUCCESS && !IsMissing(status)) {
    throw exceptions::error(status, L"cannot delete HKLM\\%s", key.c_str());
  }
}

}  // namespace crv::standins::registry
