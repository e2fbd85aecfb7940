#include "support/redirected_hive.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <string>

namespace crv::test {
namespace {

std::wstring Path() { return L"Software\\Corvid Tests\\Hive " + std::to_wstring(GetCurrentProcessId()); }

}  // namespace

RedirectedHive::RedirectedHive() {
  SHDeleteKeyW(HKEY_CURRENT_USER, Path().c_str());
  EXPECT_EQ(0, RegCreateKeyExW(HKEY_CURRENT_USER, Path().c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key_, nullptr));
  EXPECT_EQ(0, RegOverridePredefKey(HKEY_LOCAL_MACHINE, key_));
}

RedirectedHive::~RedirectedHive() {
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  if (key_) RegCloseKey(key_);
  SHDeleteKeyW(HKEY_CURRENT_USER, Path().c_str());
}

}  // namespace crv::test
