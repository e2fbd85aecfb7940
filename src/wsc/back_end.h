// Which way leads to Security Center on this system: its COM class, or WMI instances on Windows Vista without a service pack and
// everything older. The version of Windows decides, which is read once while the library loads. Any thread.
#pragma once

namespace crv::wsc {

// Whether this system has the COM class.
[[nodiscard]] bool isv_available();

// Whether Security Center's WMI namespace on this system is the newer one, of Windows Vista, whose classes include anti-spyware.
[[nodiscard]] bool wmi_has_security_center2();

}  // namespace crv::wsc
