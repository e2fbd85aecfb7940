#include "wsc/back_end.h"

#include "root/os_version.h"

namespace crv::wsc {
namespace {

bool SupportsIsv(const OSVERSIONINFOEXW& version) {
  return supports_isv(version.dwMajorVersion, version.dwMinorVersion, version.wServicePackMajor);
}

}  // namespace

bool supports_isv(std::uint32_t major, std::uint32_t minor, std::uint32_t service_pack_major) {
  if (major != 6) return major > 6;
  return minor >= 1 || service_pack_major >= 1;
}

bool wmi_has_antispyware(std::uint32_t major) { return major >= 6; }

// Asking through the function fills the version record first, whatever the order of initialisation.
const bool isv_available = SupportsIsv(root::OsVersionRecord());

}  // namespace crv::wsc
