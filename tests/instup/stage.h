// What the tests of the folders stand on: an empty HKEY_LOCAL_MACHINE and an empty folder in the file system, both gone at the
// end, and a main executable that seems to lie where the test says.
#pragma once

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <filesystem>
#include <optional>
#include <string>

#include "support/import_fake.h"
#include "support/redirected_hive.h"

namespace crv::instup::test {

inline constexpr const wchar_t* kCorvidKey = L"SOFTWARE\\CORVID Software\\Corvid";

// Writes a value below HKEY_LOCAL_MACHINE.
inline void SetBytes(const std::wstring& key, const wchar_t* name, DWORD type, const void* data, DWORD bytes) {
  EXPECT_EQ(0, SHSetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, type, data, bytes));
}

inline void SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ) {
  SetBytes(key, name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

inline void DeleteValue(const std::wstring& key, const wchar_t* name) {
  EXPECT_EQ(0, SHDeleteValueW(HKEY_LOCAL_MACHINE, key.c_str(), name));
}

inline bool IsDirectory(const std::wstring& path) { return std::filesystem::is_directory(path); }

class Stage {
 public:
  Stage() {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    root_ = temp + (L"crv" + std::to_wstring(GetCurrentProcessId()));
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
  }
  ~Stage() { std::filesystem::remove_all(root_); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // Paths below the stage's folder; the folders on the way to a file are made with it.
  std::wstring Path(const std::wstring& name) const { return root_ + L"\\" + name; }
  std::wstring AddFolder(const std::wstring& name) const {
    std::filesystem::create_directories(Path(name));
    return Path(name);
  }
  std::wstring AddFile(const std::wstring& name) const {
    std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
    CloseHandle(CreateFileW(Path(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    return Path(name);
  }

  // From now on the process was started from this file; with an empty path the system does not tell.
  void SetExecutable(const std::wstring& path) {
    own_path_.reset();
    own_path_.emplace("kernel32.dll", "GetModuleFileNameW", [path](auto, HMODULE, wchar_t* buffer, DWORD chars) {
      const DWORD length = static_cast<DWORD>(path.copy(buffer, chars));
      if (length < chars) buffer[length] = L'\0';
      return length;
    });
  }

 private:
  crv::test::RedirectedHive hive_;
  std::wstring root_;
  std::optional<crv::test::ImportFake<decltype(GetModuleFileNameW), struct OwnPathPlace>> own_path_;
};

// A fixture on that stage.
class StageTest : public testing::Test, protected Stage {};

}  // namespace crv::instup::test
