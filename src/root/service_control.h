// Asks for a service's state, and starts or controls a service with an optional wait. States are the `dwCurrentState` values of
// the Service Control Manager (SERVICE_RUNNING and its kin).
//
// Failures throw `crv::exceptions::error` with the last error and a text that names the service: "Unable to open the service
// control manager!", "Unable to open the service '%s'!", "Unable to query status of the service '%s'!". Nothing is kept; any
// thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::root {

inline constexpr std::uint32_t kControlStart = 0;  // the control code that stands for starting the service

// The state at this moment.
[[nodiscard]] std::uint32_t QueryServiceState(const std::wstring& name);

// Starts the service (kControlStart) or sends it a SERVICE_CONTROL_... code, unless it is in `skip_state` or `target_state`
// already; somebody else's start that came first counts as this one's. `extra_access` is the right that the request needs. Then
// waits until the service is in `target_state`: true when it was seen there or `timeout_ms` is 0 (no wait), false after
// `timeout_ms`, and the calling thread sleeps meanwhile. The state is looked at every 100 ms, and what is only seen once the
// time is up does not count. Throws also with "Unable to start the service '%s'!" or "Unable to send control code to the
// service '%s'!".
//
// A service whose registry key is missing in the 32-bit view gets a minimal one for the length of the request; that key is deleted
// afterwards with everything below it, or with the system's next start if this process is killed meanwhile. Two calls for the same
// service at a time may get in each other's way there.
[[nodiscard]] bool ControlServiceAndWait(const std::wstring& name, std::uint32_t extra_access, std::uint32_t control,
                                         std::uint32_t skip_state, std::uint32_t target_state, std::uint32_t timeout_ms);

}  // namespace crv::root
