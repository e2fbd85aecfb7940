// Which way leads to Security Center on this system: its COM class, or WMI instances on Windows Vista without a service pack and
// everything older. Decided once while the library loads; constant afterwards, any thread.
#pragma once

#include <cstdint>

namespace crv::wsc {

// Whether a system of this version has the COM class.
bool supports_isv(std::uint32_t major, std::uint32_t minor, std::uint32_t service_pack_major);

// Whether Security Center's WMI classes on a system of this major version include anti-spyware.
bool wmi_has_antispyware(std::uint32_t major);

// Whether this system has the COM class.
extern const bool isv_available;

}  // namespace crv::wsc
