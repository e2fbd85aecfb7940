// The suite as installed in the prefix by scripts/stage: starts its host and reads what it left behind.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::test {

struct HostRun {
  DWORD result = 0;               // the host's whole exit code; STILL_ACTIVE when it had to be ended
  std::vector<std::string> log;   // the records that the run added to wsc.log, without the crash guard's: "level tag: text"
  DWORD process_id = 0;
};

// The folder of wsc_proxy.exe. Fails the running test when the suite is not staged.
std::wstring SuiteFolder();

// Runs `"<folder>\wsc_proxy.exe" TAIL` and waits at most `limit` ms for its end.
HostRun RunHost(const std::wstring& tail, DWORD limit = 60000);

// Whole file behind wsc.log, empty when there is none; and its removal.
std::string ReadLogFile();
void DeleteLogFile();

// Wine's Windows version for wsc_proxy.exe ("win7", "win8", "win10"), for the length of a scope.
class HostWindowsVersion {
 public:
  explicit HostWindowsVersion(const wchar_t* version);
  ~HostWindowsVersion();
  HostWindowsVersion(const HostWindowsVersion&) = delete;
  HostWindowsVersion& operator=(const HostWindowsVersion&) = delete;
};

}  // namespace crv::test
