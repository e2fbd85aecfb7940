// Switches Windows Defender by policy and service, on the systems where the suite's products replace it: everything before
// Windows 8. Runs on the calling thread, keeps no state.
#pragma once

namespace crv::wsc {

// Off: writes the policy and stops the service, unless the administrator's opt-out value forbids it. On: deletes the whole policy
// key and starts the service. Does not wait for the service. Never throws: a failure is logged at error level under the context
// "change_defender_status", and the steps before it stay done. Newer systems and the opt-out log nothing.
void change_defender_status(bool enable) noexcept;

}  // namespace crv::wsc
