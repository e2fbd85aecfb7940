#include "support/installed_suite.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <fstream>
#include <sstream>

#include "root/scoped_handle.h"

namespace crv::test {
namespace {

std::wstring Folder(int csidl) {
  wchar_t path[MAX_PATH] = {};
  EXPECT_EQ(S_OK, SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, path));
  return path;
}

std::wstring LogPath() { return Folder(CSIDL_COMMON_APPDATA) + L"\\CORVID Software\\Corvid\\log\\wsc.log"; }

// "date time process thread level tag text" to "level tag: text".
std::string WithoutStamp(const std::string& line) {
  std::istringstream words(line);
  std::string date, time, process, thread, level, tag, text;
  words >> date >> time >> process >> thread >> level >> tag;
  std::getline(words >> std::ws, text);
  return level + " " + tag + ": " + text;
}

}  // namespace

std::wstring SuiteFolder() {
  const std::wstring folder = Folder(CSIDL_PROGRAM_FILES) + L"\\CORVID Software\\Corvid";
  const DWORD attributes = GetFileAttributesW((folder + L"\\wsc_proxy.exe").c_str());
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, attributes) << "the suite is not staged; run scripts/stage";
  return folder;
}

void DeleteLogFile() { DeleteFileW(LogPath().c_str()); }

HostRun RunHost(const std::wstring& tail) {
  constexpr DWORD kLimit = 60'000;  // ms
  HostRun run;
  std::ifstream before(LogPath().c_str(), std::ios::binary | std::ios::ate);
  const std::streamoff log_size = before ? std::streamoff{before.tellg()} : 0;
  before.close();
  const std::wstring host = SuiteFolder() + L"\\wsc_proxy.exe";
  std::wstring command_line = L"\"" + host + L"\" " + tail;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(host.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) {
    ADD_FAILURE() << "the host does not start: " << GetLastError();
    return run;
  }
  const root::ScopedKernelHandle process(started.hProcess), thread(started.hThread);
  if (WaitForSingleObject(process.get(), kLimit) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the host does not end";
    TerminateProcess(process.get(), STILL_ACTIVE);
    WaitForSingleObject(process.get(), kLimit);
    return run;
  }
  EXPECT_TRUE(GetExitCodeProcess(process.get(), &run.result));
  std::ifstream log(LogPath().c_str());
  log.seekg(log_size);
  for (std::string line; std::getline(log, line);) {
    const std::string record = WithoutStamp(line);
    if (record.find(" crashguard: ") == std::string::npos) run.log.push_back(record);
  }
  return run;
}

}  // namespace crv::test
