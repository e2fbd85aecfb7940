#include "root/registry.h"

#include <cstring>
#include <exception>
#include <utility>

#include "root/proc_address.h"
#include "root/scoped_handle.h"

namespace crv::root {
namespace {

// The helpers' way out: by now every key is closed and every buffer freed, so nothing changes the last error any more.
bool Report(LSTATUS result) noexcept {
  SetLastError(static_cast<DWORD>(result));
  return result == ERROR_SUCCESS;
}

// The same for work that allocates.
template <typename Work>
bool ReportResultOf(Work work) noexcept {
  LSTATUS result;
  try {
    result = work();
  } catch (const std::exception&) {  // std::bad_alloc, or std::length_error for an absurd size
    result = ERROR_NOT_ENOUGH_MEMORY;
  }
  return Report(result);
}

bool IsEmpty(const wchar_t* text) { return !text || !*text; }

LSTATUS ReadValue(HKEY root, const wchar_t* subkey, const wchar_t* name, std::vector<std::uint8_t>& data, DWORD& type,
                  REGSAM view) {
  if (!root || IsEmpty(subkey)) return ERROR_INVALID_PARAMETER;
  ScopedRegistryKey key;
  LSTATUS result = RegOpenKeyExW(root, subkey, 0, KEY_QUERY_VALUE | view, key.put());
  if (result != ERROR_SUCCESS) return result;

  std::vector<std::uint8_t> buffer;
  DWORD found_type = REG_NONE;
  DWORD count = 0;
  bool again;
  do {
    buffer.resize(count);
    result = RegQueryValueExW(key.get(), name, nullptr, &found_type, buffer.empty() ? nullptr : buffer.data(), &count);
    const bool measured = buffer.empty() && result == ERROR_SUCCESS && count != 0;
    again = measured || result == ERROR_MORE_DATA;
  } while (again);
  if (result != ERROR_SUCCESS) return result;

  buffer.resize(count);
  data = std::move(buffer);
  type = found_type;
  return ERROR_SUCCESS;
}

// The system's function stops at 32,767 characters and still answers the full size: a text that ends before it was cut.
LSTATUS ExpandEnvironment(std::wstring& text) {
  std::wstring expanded;
  for (;;) {
    const DWORD capacity = static_cast<DWORD>(expanded.size());
    const DWORD needed = ExpandEnvironmentStringsW(text.c_str(), capacity != 0 ? expanded.data() : nullptr, capacity);
    if (needed == 0) return static_cast<LSTATUS>(GetLastError());
    expanded.resize(needed);
    if (needed <= capacity) break;
  }
  expanded.pop_back();  // the terminating NUL, which the call counts
  if (expanded.find(L'\0') != std::wstring::npos) return ERROR_INVALID_DATA;
  text = std::move(expanded);
  return ERROR_SUCCESS;
}

LSTATUS ReadString(HKEY root, const wchar_t* subkey, const wchar_t* name, std::wstring& value, REGSAM view) {
  std::vector<std::uint8_t> data;
  DWORD type = REG_NONE;
  LSTATUS result = ReadValue(root, subkey, name, data, type, view);
  if (result != ERROR_SUCCESS) return result;
  if ((type != REG_SZ && type != REG_EXPAND_SZ) || data.size() % sizeof(wchar_t) != 0) return ERROR_INVALID_DATA;

  std::wstring text(data.size() / sizeof(wchar_t), L'\0');
  if (!data.empty()) std::memcpy(text.data(), data.data(), data.size());
  if (const std::size_t nul = text.find(L'\0'); nul != std::wstring::npos) text.resize(nul);
  if (type == REG_EXPAND_SZ) result = ExpandEnvironment(text);
  if (result == ERROR_SUCCESS) value = std::move(text);
  return result;
}

LSTATUS ReadDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t& value, REGSAM view) {
  std::vector<std::uint8_t> data;
  DWORD type = REG_NONE;
  const LSTATUS result = ReadValue(HKEY_LOCAL_MACHINE, subkey, name, data, type, view);
  if (result != ERROR_SUCCESS) return result;
  if (type != REG_DWORD || data.size() != sizeof(value)) return ERROR_INVALID_DATA;
  std::memcpy(&value, data.data(), sizeof(value));
  return ERROR_SUCCESS;
}

LSTATUS WriteDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t value, REGSAM view) {
  if (IsEmpty(subkey)) return ERROR_INVALID_PARAMETER;
  ScopedRegistryKey key;
  const LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, subkey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE | view,
                                         nullptr, key.put(), nullptr);
  if (result != ERROR_SUCCESS) return result;
  return RegSetValueExW(key.get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
}

// RegDeleteKeyExW came with the 64-bit editions of Windows; a Windows XP without it has one view only.
LSTATUS DeleteEmptyKey(HKEY root, const wchar_t* subkey, REGSAM view) {
  using RegDeleteKeyExFunction = LSTATUS WINAPI(HKEY, const wchar_t*, REGSAM, DWORD);
  auto* const delete_in_view = FindFunction<RegDeleteKeyExFunction>(GetModuleHandleW(L"advapi32"), "RegDeleteKeyExW");
  return delete_in_view ? delete_in_view(root, subkey, view, 0) : RegDeleteKeyW(root, subkey);
}

LSTATUS DeleteTree(HKEY root, const wchar_t* subkey, REGSAM view) {
  if (!root || IsEmpty(subkey)) return ERROR_INVALID_PARAMETER;
  ScopedRegistryKey key;
  LSTATUS result = RegOpenKeyExW(root, subkey, 0, KEY_ENUMERATE_SUB_KEYS | view, key.put());
  constexpr DWORD kNameSize = 256;  // characters: the longest name and its NUL
  wchar_t name[kNameSize];
  // Always the first subkey: deleting it makes the next one the first.
  while (result == ERROR_SUCCESS && RegEnumKeyW(key.get(), 0, name, kNameSize) == ERROR_SUCCESS) {
    result = DeleteTree(key.get(), name, view);
  }
  return result == ERROR_SUCCESS ? DeleteEmptyKey(root, subkey, view) : result;
}

}  // namespace

bool KeyExists(const wchar_t* subkey, REGSAM view) noexcept {
  if (IsEmpty(subkey)) return Report(ERROR_INVALID_PARAMETER);
  const LSTATUS result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey, 0, KEY_QUERY_VALUE | view, ScopedRegistryKey().put());
  Report(result == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : result);
  return result == ERROR_SUCCESS;
}

bool QueryValue(HKEY root, const wchar_t* subkey, const wchar_t* name, std::vector<std::uint8_t>& data, DWORD& type,
                REGSAM view) noexcept {
  return ReportResultOf([&] { return ReadValue(root, subkey, name, data, type, view); });
}

bool QueryString(HKEY root, const wchar_t* subkey, const wchar_t* name, std::wstring& value, REGSAM view) noexcept {
  return ReportResultOf([&] { return ReadString(root, subkey, name, value, view); });
}

bool QueryDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t& value, REGSAM view) noexcept {
  return ReportResultOf([&] { return ReadDword(subkey, name, value, view); });
}

bool SetDword(const wchar_t* subkey, const wchar_t* name, std::uint32_t value, REGSAM view) noexcept {
  return Report(WriteDword(subkey, name, value, view));
}

bool DeleteKeyTree(HKEY root, const wchar_t* subkey, REGSAM view) noexcept { return Report(DeleteTree(root, subkey, view)); }

}  // namespace crv::root
