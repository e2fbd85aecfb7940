// A folder for dumps, and a log that is captured.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <string>
#include <vector>

#include "support/captured_log.h"

namespace crv::test {

class DumpStage : public testing::Test {
 protected:
  DumpStage() {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    folder_ = std::wstring(temp) + L"dumps " + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(folder_.c_str(), nullptr);
  }
  ~DumpStage() override {
    for (const std::wstring& file : Files()) DeleteFileW((folder_ + L"\\" + file).c_str());
    RemoveDirectoryW(folder_.c_str());
  }

  std::vector<std::wstring> Files() const {
    std::vector<std::wstring> files;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((folder_ + L"\\*.*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return files;
    do {
      if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) files.push_back(found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return files;
  }

  std::wstring folder_;
  CapturedLog log_;
};

}  // namespace crv::test
