// Starts a program and collects what it writes. A program that does not end within 60 seconds is killed and fails the test.
#pragma once

#include <windows.h>

#include <string>

namespace crv::test {

struct Ended {
  DWORD code = 0;      // the whole exit code
  std::string output;  // standard and error output together
};

// Runs beside each other: start all, then wait for each.
class Child {
 public:
  // `folder` is the program's working folder and the place of its output file.
  Child(const std::wstring& folder, const std::wstring& command_line);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool IsRunning() const;  // false at the latest 60 seconds after the start
  Ended Wait();

 private:
  std::wstring output_path_;
  PROCESS_INFORMATION process_ = {};
  DWORD start_ = GetTickCount();
};

std::wstring OwnFolder();                        // of the test program, with a trailing backslash
std::string ReadFileText(const std::wstring& path);  // empty when there is no such file

// An empty folder of its own, without a trailing backslash, that vanishes with its files at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::wstring& path() const { return path_; }
  std::wstring operator/(const wchar_t* file) const { return path_ + L"\\" + file; }

 private:
  std::wstring path_;
};

}  // namespace crv::test
