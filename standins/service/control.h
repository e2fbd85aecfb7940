// The services that the stand-ins put in place of the system's own, run by corvid_service.exe under the real Service Control
// Manager, and how each one is told to misbehave. Any service name works, so a test may bring a service of its own. Functions
// throw crv::exceptions::error with the system's code; waits are bounded. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Services\<name>     all absent: a service that starts and stops at once
//     Start        text    how it starts, "normal", "slow", "hang", "refuse" or "die", see below
//     StartDelay   DWORD   ms in start-pending, of "slow"
//     StartError   DWORD   exit code, of "refuse"
//     RefuseStop   DWORD 1 it does not accept a stop request: ControlService fails with 1052
//     StopDelay    DWORD   ms in stop-pending
#pragma once

#include <windows.h>
#include <winsvc.h>

#include <optional>
#include <string>

namespace crv::standins {

inline constexpr wchar_t kServicesKey[] = L"SOFTWARE\\Corvid Stand-ins\\Services";
inline constexpr wchar_t kServiceProgram[] = L"corvid_service.exe";

inline constexpr wchar_t kCenterService[] = L"wscsvc";       // Security Center's own
inline constexpr wchar_t kDefenderService[] = L"WinDefend";  // the system's anti-spyware
inline constexpr const wchar_t* kSystemServices[] = {kCenterService, kDefenderService};

inline constexpr wchar_t kStartNormal[] = L"normal";
inline constexpr wchar_t kStartSlow[] = L"slow";      // runs after StartDelay
inline constexpr wchar_t kStartHang[] = L"hang";      // stays in start-pending until told otherwise
inline constexpr wchar_t kStartRefuse[] = L"refuse";  // StartServiceW succeeds, then the service stops with the code StartError
inline constexpr wchar_t kStartDie[] = L"die";        // its program ends at once: StartServiceW fails

struct ServiceBehaviour {
  std::wstring start = kStartNormal;
  DWORD start_delay = 0;  // ms
  DWORD start_error = 0;
  bool refuse_stop = false;
  DWORD stop_delay = 0;  // ms
};

ServiceBehaviour ReadServiceBehaviour(const std::wstring& name);

// Replaces the behaviour. A service that runs or hangs follows it before this returns; a slow one waits for its new time.
void Behave(const std::wstring& name, const ServiceBehaviour& behaviour);

struct ServiceStatus {
  DWORD state;           // SERVICE_STOPPED, SERVICE_START_PENDING, ...
  DWORD start_type;      // SERVICE_AUTO_START, SERVICE_DEMAND_START, SERVICE_DISABLED
  DWORD exit_code;       // of the last run
  std::wstring program;  // its command line
};

std::optional<ServiceStatus> FindService(const std::wstring& name);  // empty: there is no such service

// Creates the service with `program` (a full path of corvid_service.exe); one that exists gets the program and start type.
void InstallService(const std::wstring& name, const std::wstring& program, DWORD start_type);

// The same for a kernel driver, whose image is `file`; the system loads it when it starts.
void InstallDriver(const std::wstring& name, const std::wstring& file);

// Makes it behave normally, stops and deletes it; returns when it is gone. One that is missing is no failure.
void RemoveService(const std::wstring& name);

void SetStartType(const std::wstring& name, DWORD start_type);

// Makes it behave normally and stops it; returns when it has stopped.
void StopForSure(const std::wstring& name);

// Ask only: return when the Service Control Manager has taken the request. Running, or stopped, already is no failure.
void RequestStart(const std::wstring& name);
void RequestStop(const std::wstring& name);

// Whether the service is in the state within `limit` ms; looks every 20 ms.
bool WaitForState(const std::wstring& name, DWORD state, DWORD limit = 10'000);

// Whatever it was told and whatever it does: behaves normally, is started by the system and runs.
void MakeServiceHealthy(const std::wstring& name);

// For the service: the control code by which it learns that its behaviour changed.
inline constexpr DWORD kControlLookAgain = 128;

}  // namespace crv::standins
