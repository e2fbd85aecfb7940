// Parts of the registry as values: what is there, and making it so again. Failures throw crv::exceptions::error.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace crv::acceptance {

struct RegistryValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> data = {};
  bool operator==(const RegistryValue&) const = default;
};

struct RegistryTree {
  std::map<std::wstring, RegistryValue> values = {};
  std::map<std::wstring, RegistryTree> keys = {};
  bool operator==(const RegistryTree&) const = default;
};

// Where it is. On a 64-bit system a 32-bit program sees two views, `view` 32 or 64; on a 32-bit one both are the same.
struct RegistryPlace {
  HKEY root = HKEY_LOCAL_MACHINE;
  int view = 32;
  std::wstring path = {};

  std::wstring Text() const;  // for messages
};

std::optional<RegistryTree> ReadTree(const RegistryPlace& place);  // empty: there is no such key

// Changes only what differs, so that security descriptors stay; a key that was not there goes away.
void RestoreTree(const RegistryPlace& place, const std::optional<RegistryTree>& tree);

std::optional<RegistryValue> ReadValue(const RegistryPlace& place, const std::wstring& name);
void RestoreValue(const RegistryPlace& place, const std::wstring& name, const std::optional<RegistryValue>& value);

// The first key on the way to this one that is missing, or the key itself: with it goes everything that would be made on the way.
RegistryPlace FirstMissing(const RegistryPlace& place);

}  // namespace crv::acceptance
