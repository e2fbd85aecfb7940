#include "instup/registry_text.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace crv::instup {
namespace {

constexpr DWORD kFirstBufferBytes = 520;
constexpr DWORD kGrowthBytes = 2;

struct NamedRoot {
  const wchar_t* name;
  HKEY key;
};

DWORD Result(LONG code) {
  SetLastError(static_cast<DWORD>(code));
  return static_cast<DWORD>(code);
}

HKEY FindRoot(const wchar_t* name) {
  const NamedRoot roots[] = {
      {L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
      {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
      {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
      {L"HKEY_USERS", HKEY_USERS},
  };
  if (!name) return nullptr;
  for (const NamedRoot& root : roots) {
    if (std::wcscmp(root.name, name) == 0) return root.key;
  }
  return nullptr;
}

// An odd last byte is half a character and belongs to no text, so it is dropped.
void AssignText(std::wstring& out, const BYTE* data, DWORD bytes) {
  out.resize(bytes / sizeof(wchar_t));
  std::memcpy(out.data(), data, out.size() * sizeof(wchar_t));
  out.resize(std::min(out.size(), out.find(L'\0')));
}

LONG Read(HKEY key, const wchar_t* name, std::wstring& out) {
  BYTE first[kFirstBufferBytes];
  DWORD bytes = sizeof(first);
  LONG result = RegQueryValueExW(key, name, nullptr, nullptr, first, &bytes);
  if (result == ERROR_SUCCESS) AssignText(out, first, bytes);

  // Asked again as long as the value has grown meanwhile; a reported size that would have fitted ends it.
  DWORD capacity = sizeof(first);
  while (result == ERROR_MORE_DATA && bytes > capacity) {
    if (bytes > MAXDWORD - kGrowthBytes) return ERROR_NOT_ENOUGH_MEMORY;
    capacity = bytes + kGrowthBytes;
    const std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[capacity]);
    if (!buffer) return ERROR_NOT_ENOUGH_MEMORY;
    bytes = capacity;
    result = RegQueryValueExW(key, name, nullptr, nullptr, buffer.get(), &bytes);
    if (result == ERROR_SUCCESS) AssignText(out, buffer.get(), bytes);
  }
  return result;
}

}  // namespace

DWORD OpenRegistryKey(const wchar_t* root_name, const wchar_t* subkey, REGSAM access, HKEY parent, HKEY* key) {
  if (!parent) parent = FindRoot(root_name);
  if (!parent || !subkey || !key) return Result(ERROR_INVALID_PARAMETER);
  HKEY opened = nullptr;
  const LONG result = RegOpenKeyExW(parent, subkey, 0, access, &opened);
  if (result == ERROR_SUCCESS) *key = opened;
  return Result(result);
}

DWORD ReadRegistryString(HKEY key, const wchar_t* name, std::wstring& out) {
  out.clear();
  try {
    return Result(Read(key, name, out));
  } catch (const std::bad_alloc&) {
    out.clear();
    return Result(ERROR_NOT_ENOUGH_MEMORY);
  }
}

}  // namespace crv::instup
