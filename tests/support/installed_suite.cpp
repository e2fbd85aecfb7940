#include "support/installed_suite.h"

#include <gtest/gtest.h>
#include <shlobj.h>
#include <shlwapi.h>

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
  EXPECT_TRUE(PathFileExistsW((folder + L"\\wsc_proxy.exe").c_str())) << "the suite is not staged; run scripts/stage";
  return folder;
}

std::string ReadLogFile() {
  std::ifstream file(LogPath().c_str(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void DeleteLogFile() { DeleteFileW(LogPath().c_str()); }

HostRun RunHost(const std::wstring& tail, DWORD limit) {
  HostRun run;
  const std::size_t log_size = ReadLogFile().size();
  const std::wstring host = SuiteFolder() + L"\\wsc_proxy.exe";
  std::wstring command_line = L"\"" + host + L"\" " + tail;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(host.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) {
    ADD_FAILURE() << "the host does not start: " << GetLastError();
    return run;
  }
  const root::ScopedKernelHandle process(started.hProcess);
  const root::ScopedKernelHandle thread(started.hThread);
  run.process_id = started.dwProcessId;
  if (WaitForSingleObject(process.get(), limit) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the host does not end";
    run.result = STILL_ACTIVE;
    TerminateProcess(process.get(), STILL_ACTIVE);
    WaitForSingleObject(process.get(), limit);
    return run;
  }
  EXPECT_TRUE(GetExitCodeProcess(process.get(), &run.result));
  std::istringstream added(ReadLogFile().substr(log_size));
  for (std::string line; std::getline(added, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string record = WithoutStamp(line);
    if (record.find(" crashguard: ") == std::string::npos) run.log.push_back(record);
  }
  return run;
}

namespace {

constexpr wchar_t kHostVersionKey[] = L"Software\\Wine\\AppDefaults\\wsc_proxy.exe";

}  // namespace

HostWindowsVersion::HostWindowsVersion(const wchar_t* version) {
  EXPECT_EQ(0u, SHSetValueW(HKEY_CURRENT_USER, kHostVersionKey, L"Version", REG_SZ, version,
                            static_cast<DWORD>((std::wcslen(version) + 1) * sizeof(wchar_t))));
}

HostWindowsVersion::~HostWindowsVersion() { SHDeleteKeyW(HKEY_CURRENT_USER, kHostVersionKey); }

}  // namespace crv::test
