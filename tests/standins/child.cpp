#include "standins/child.h"

#include <gtest/gtest.h>

namespace crv::test {
namespace {

constexpr DWORD kLimit = 60'000;  // ms

}  // namespace

Child::Child(const std::wstring& folder, const std::wstring& command_line) {
  static int number = 0;
  output_path_ = folder + L"\\output " + std::to_wstring(++number) + L".txt";
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  const HANDLE output = CreateFileW(output_path_.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    &inherited, CREATE_ALWAYS, 0, nullptr);
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = output;
  std::wstring text = command_line;
  EXPECT_TRUE(CreateProcessW(nullptr, text.data(), nullptr, nullptr, TRUE, 0, nullptr, folder.c_str(), &startup, &process_))
      << GetLastError();
  CloseHandle(output);
}

Child::~Child() {
  CloseHandle(process_.hThread);
  CloseHandle(process_.hProcess);
}

bool Child::IsRunning() const {
  return WaitForSingleObject(process_.hProcess, 0) == WAIT_TIMEOUT && GetTickCount() - start_ < kLimit;
}

Ended Child::Wait() {
  Ended ended;
  if (WaitForSingleObject(process_.hProcess, kLimit) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the program hangs";
    TerminateProcess(process_.hProcess, ERROR_TIMEOUT);
    WaitForSingleObject(process_.hProcess, 10'000);
  }
  GetExitCodeProcess(process_.hProcess, &ended.code);
  ended.output = ReadFileText(output_path_);
  return ended;
}

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring text = path;
  return text.substr(0, text.rfind(L'\\') + 1);
}

std::string ReadFileText(const std::wstring& path) {
  std::string text;
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return text;
  char buffer[4096];
  for (DWORD read = 0; ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0;) text.append(buffer, read);
  CloseHandle(file);
  return text;
}

TemporaryFolder::TemporaryFolder() {
  wchar_t base[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, base);
  static int number = 0;
  path_ = base + (L"corvid " + std::to_wstring(GetCurrentProcessId())) + L"-" + std::to_wstring(++number);
  EXPECT_TRUE(CreateDirectoryW(path_.c_str(), nullptr)) << GetLastError();
}

TemporaryFolder::~TemporaryFolder() {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((path_ + L"\\*").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      DeleteFileW((path_ + L"\\" + found.cFileName).c_str());
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  EXPECT_TRUE(RemoveDirectoryW(path_.c_str())) << GetLastError();
}

}  // namespace crv::test
