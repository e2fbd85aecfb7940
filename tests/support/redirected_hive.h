// A stage on which HKEY_LOCAL_MACHINE of the test process is an empty key of the user's hive. Keys that COM needs
// (Software\Classes) are not there; use it for code that only reads and writes the registry. One at a time, on one thread. Its
// view for 64-bit programs is what lies below the key k64BitView.
#pragma once

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <string>

#include "root/scoped_handle.h"
#include "support/import_fake.h"

namespace crv::test {

inline constexpr wchar_t k64BitView[] = L"64-bit view\\";

class RedirectedHive {
 public:
  RedirectedHive() {  // fails the running test when the redirection is refused
    SHDeleteKeyW(HKEY_CURRENT_USER, path_.c_str());
    EXPECT_EQ(0, RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key_.put(), nullptr));
    EXPECT_EQ(0, RegOverridePredefKey(HKEY_LOCAL_MACHINE, key_.get()));
  }
  ~RedirectedHive() {  // ends the redirection and deletes everything below the key
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    key_.reset();
    SHDeleteKeyW(HKEY_CURRENT_USER, path_.c_str());
  }
  RedirectedHive(const RedirectedHive&) = delete;
  RedirectedHive& operator=(const RedirectedHive&) = delete;

 private:
  static std::wstring Seen(HKEY root, const wchar_t* subkey, REGSAM access) {
    return (root == HKEY_LOCAL_MACHINE && access & KEY_WOW64_64KEY ? k64BitView : L"") + std::wstring(subkey);
  }

  root::ScopedRegistryKey key_;  // not every system has a handle of its own
  const std::wstring path_ = L"Software\\Corvid Tests\\Hive " + std::to_wstring(GetCurrentProcessId());
  const ImportFake<decltype(RegOpenKeyExW), struct HiveOpens> open_{
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, auto subkey, DWORD options, REGSAM access, HKEY* key) {
        return real(root, Seen(root, subkey, access).c_str(), options, access & ~DWORD{KEY_WOW64_64KEY}, key);
      }};
  const ImportFake<decltype(RegCreateKeyExW), struct HiveCreates> create_{
      "advapi32.dll", "RegCreateKeyExW",
      [](auto real, HKEY root, auto subkey, DWORD zero, auto name, DWORD options, REGSAM access, auto... rest) {
        return real(root, Seen(root, subkey, access).c_str(), zero, name, options, access & ~DWORD{KEY_WOW64_64KEY}, rest...);
      }};
};

}  // namespace crv::test
