// Change notifications of the stand-in for Security Center's client library wscapi.dll: asking for them, and how registering for
// them fails. By itself the library notifies when a product of security_center/control.h or the state of the service wscsvc
// changes. Everything lies in the registry, so it reaches every process. Failures to reach the registry throw
// crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Changes
//     Request, Count, Duration   DWORDs: the last request for notifications; Request is another number each time
//     Script, Journal            see scripted_calls.h; calls are `WscRegisterForChanges` and `WscUnRegisterChanges`. A scripted
//                                failure of the second is answered after unregistering.
#pragma once

#include <windows.h>

#include <optional>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr wchar_t kChangesKey[] = L"SOFTWARE\\Corvid Stand-ins\\Changes";
inline constexpr wchar_t kRegisterForChanges[] = L"WscRegisterForChanges";
inline constexpr wchar_t kUnRegisterChanges[] = L"WscUnRegisterChanges";
inline constexpr wchar_t kListenerEvent[] = L"Global\\Corvid Stand-ins Changes Listener";  // exists while anybody is registered

const ScriptedCalls& ChangesCalls();

// Every registration in every process is notified `count` times: at once, then evenly until `duration` ms have passed. It looks
// for requests every 50 ms and finishes one before it looks for the next.
void RequestNotifications(DWORD count, DWORD duration);

// Whether any process is registered for changes at this moment.
bool SomebodyListens();

struct NotificationRequest {
  DWORD number;
  DWORD count;
  DWORD duration;  // ms
};
std::optional<NotificationRequest> LastNotificationRequest();

void ClearChanges();  // request, scripts and journal

}  // namespace crv::standins
