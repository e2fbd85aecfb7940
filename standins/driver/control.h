// The stand-in for the suite's self-protection driver: a real kernel driver under the Service Control Manager, how it is told to
// answer, and what it was asked. Functions throw crv::exceptions::error with the system's code; waits are bounded. Any thread,
// any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Driver     read by the driver at every request
//     Answer        DWORD   to the trusted-process query; absent: 1, trusted
//     Short         DWORD 1 the query is answered with 2 bytes of 4
//     Status        DWORD   NTSTATUS with which every request fails; absent or 0: none
//     Queries       DWORD   written by the driver: trusted-process queries so far
//     LastProcess   DWORD   the same: the process id of the last one
//     FatalDumps    DWORD   the same: fatal-dump notices so far
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "service/control.h"

namespace crv::standins {

inline constexpr wchar_t kDriverService[] = L"corvid_selfprotection";
inline constexpr wchar_t kDriverFile[] = L"corvid_selfprotection.sys";

struct DriverBehaviour {
  DWORD answer = 1;  // 0: no process is trusted
  bool short_answer = false;
  DWORD status = 0;  // NTSTATUS, 0xC0000022 for example
};
DriverBehaviour ReadDriverBehaviour();
void Behave(const DriverBehaviour& behaviour);

struct DriverCounts {
  DWORD queries = 0;
  std::optional<DWORD> last_process;
  DWORD fatal_dumps = 0;
};
DriverCounts ReadDriverCounts();

// Installs the driver `file` (full path of the .sys) if it is not there yet and loads it: when this returns its devices can be
// opened. It is loaded again when the machine starts.
void LoadDriver(const std::wstring& file);

// Unloads and removes it, behaviour and counts included; one that is missing is no failure. Nobody may hold a device open.
void RemoveDriver();

}  // namespace crv::standins
