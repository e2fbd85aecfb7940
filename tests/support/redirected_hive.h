// A stage on which HKEY_LOCAL_MACHINE of the test process is an empty key of the user's hive. Keys that COM needs
// (Software\Classes) are not there; use it for code that only reads and writes the registry. One at a time, on one thread.
#pragma once

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <string>

#include "root/scoped_handle.h"

namespace crv::test {

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
  root::ScopedRegistryKey key_;  // not every system has a handle of its own
  const std::wstring path_ = L"Software\\Corvid Tests\\Hive " + std::to_wstring(GetCurrentProcessId());
};

}  // namespace crv::test
