// The suite as installed in the prefix by scripts/stage: starts its host and reads what it left behind.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::test {

struct HostRun {
  DWORD result = STILL_ACTIVE;   // the host's whole exit code, unless it had to be ended
  std::vector<std::string> log;  // the records that the run added to wsc.log, without the crash guard's: "level tag: text"
};

// The folder of wsc_proxy.exe. Fails the running test when the suite is not staged.
std::wstring SuiteFolder();

// Runs `"<folder>\wsc_proxy.exe" TAIL` and waits a minute for its end.
HostRun RunHost(const std::wstring& tail);

// Removes wsc.log.
void DeleteLogFile();

}  // namespace crv::test
