#include "acceptance/registry_tree.h"

#include "base/exceptions.h"
#include "root/scoped_handle.h"

namespace crv::acceptance {
namespace {

constexpr DWORD kLongestName = 16384;  // characters, of a value

REGSAM ViewOf(const RegistryPlace& place) { return place.view == 64 ? KEY_WOW64_64KEY : KEY_WOW64_32KEY; }

[[noreturn]] void Fail(LSTATUS status, const wchar_t* step, const RegistryPlace& place) {
  throw exceptions::error(status, L"cannot %s %s", step, place.Text().c_str());
}

root::ScopedRegistryKey Open(const RegistryPlace& place, REGSAM access) {
  root::ScopedRegistryKey key;
  const LSTATUS status = RegOpenKeyExW(place.root, place.path.c_str(), 0, access | ViewOf(place), key.put());
  if (status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND) return {};
  if (status != ERROR_SUCCESS) Fail(status, L"open", place);
  return key;
}

RegistryPlace Below(const RegistryPlace& place, const std::wstring& name) {
  return {place.root, place.view, place.path + L"\\" + name};
}

std::map<std::wstring, RegistryValue> ReadValues(HKEY key, const RegistryPlace& place) {
  std::map<std::wstring, RegistryValue> values;
  std::wstring name(kLongestName, L'\0');
  for (DWORD i = 0;; ++i) {
    DWORD length = kLongestName;
    RegistryValue value;
    DWORD size = 0;
    LSTATUS status = RegEnumValueW(key, i, name.data(), &length, nullptr, &value.type, nullptr, &size);
    if (status == ERROR_NO_MORE_ITEMS) return values;
    if (status == ERROR_SUCCESS && size > 0) {
      value.data.resize(size);
      length = kLongestName;
      status = RegEnumValueW(key, i, name.data(), &length, nullptr, &value.type, value.data.data(), &size);
      value.data.resize(size);
    }
    if (status != ERROR_SUCCESS) Fail(status, L"read", place);
    values[name.substr(0, length)] = value;
  }
}

std::vector<std::wstring> KeyNames(HKEY key, const RegistryPlace& place) {
  std::vector<std::wstring> names;
  wchar_t name[256];  // the longest has 255
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(std::size(name));
    const LSTATUS status = RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return names;
    if (status != ERROR_SUCCESS) Fail(status, L"list", place);
    names.emplace_back(name, length);
  }
}

// Through the key above, which knows the view. The system's own function for it is newer than Windows XP.
void DeleteKey(const RegistryPlace& place) {
  const root::ScopedRegistryKey key = Open(place, KEY_READ);
  if (!key) return;
  for (const std::wstring& name : KeyNames(key.get(), place)) DeleteKey(Below(place, name));
  const std::size_t at = place.path.rfind(L'\\');
  const RegistryPlace above = {place.root, place.view, place.path.substr(0, at)};
  const root::ScopedRegistryKey parent = Open(above, KEY_READ | KEY_WRITE | DELETE);
  const LSTATUS status = parent ? RegDeleteKeyW(parent.get(), place.path.c_str() + at + 1) : ERROR_SUCCESS;
  if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) Fail(status, L"delete", place);
}

void Write(HKEY key, const std::wstring& name, const RegistryValue& value, const RegistryPlace& place) {
  const LSTATUS status =
      RegSetValueExW(key, name.c_str(), 0, value.type, value.data.data(), static_cast<DWORD>(value.data.size()));
  if (status != ERROR_SUCCESS) Fail(status, L"write to", place);
}

void Delete(HKEY key, const std::wstring& name, const RegistryPlace& place) {
  const LSTATUS status = RegDeleteValueW(key, name.c_str());
  if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) Fail(status, L"delete a value of", place);
}

root::ScopedRegistryKey Create(const RegistryPlace& place) {
  root::ScopedRegistryKey key;
  const LSTATUS status = RegCreateKeyExW(place.root, place.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                         KEY_READ | KEY_WRITE | ViewOf(place), nullptr, key.put(), nullptr);
  if (status != ERROR_SUCCESS) Fail(status, L"create", place);
  return key;
}

}  // namespace

std::wstring RegistryPlace::Text() const {
  return (root == HKEY_CURRENT_USER ? L"HKCU\\" : L"HKLM\\") + path + (view == 64 ? L" (64-bit view)" : L" (32-bit view)");
}

std::optional<RegistryTree> ReadTree(const RegistryPlace& place) {
  const root::ScopedRegistryKey key = Open(place, KEY_READ);
  if (!key) return std::nullopt;
  RegistryTree tree = {ReadValues(key.get(), place), {}};
  for (const std::wstring& name : KeyNames(key.get(), place)) {
    if (std::optional<RegistryTree> below = ReadTree(Below(place, name))) tree.keys[name] = std::move(*below);
  }
  return tree;
}

void RestoreTree(const RegistryPlace& place, const std::optional<RegistryTree>& tree) {
  const std::optional<RegistryTree> now = ReadTree(place);
  if (now == tree) return;
  if (!tree) return DeleteKey(place);
  const root::ScopedRegistryKey key = Create(place);
  const RegistryTree before = now.value_or(RegistryTree());
  for (const auto& [name, value] : before.values) {
    if (!tree->values.contains(name)) Delete(key.get(), name, place);
  }
  for (const auto& [name, value] : tree->values) {
    const auto found = before.values.find(name);
    if (found == before.values.end() || found->second != value) Write(key.get(), name, value, place);
  }
  for (const auto& [name, below] : before.keys) {
    if (!tree->keys.contains(name)) DeleteKey(Below(place, name));
  }
  for (const auto& [name, below] : tree->keys) RestoreTree(Below(place, name), below);
}

std::optional<RegistryValue> ReadValue(const RegistryPlace& place, const std::wstring& name) {
  const root::ScopedRegistryKey key = Open(place, KEY_READ);
  if (!key) return std::nullopt;
  const std::map<std::wstring, RegistryValue> values = ReadValues(key.get(), place);
  const auto found = values.find(name);
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

void RestoreValue(const RegistryPlace& place, const std::wstring& name, const std::optional<RegistryValue>& value) {
  if (ReadValue(place, name) == value) return;
  const root::ScopedRegistryKey key = Create(place);
  value ? Write(key.get(), name, *value, place) : Delete(key.get(), name, place);
}

RegistryPlace FirstMissing(const RegistryPlace& place) {
  for (std::size_t at = place.path.find(L'\\'); at != std::wstring::npos; at = place.path.find(L'\\', at + 1)) {
    const RegistryPlace above = {place.root, place.view, place.path.substr(0, at)};
    if (!Open(above, KEY_READ)) return above;
  }
  return place;
}

}  // namespace crv::acceptance
