#include "wsc/back_end.h"

#include "root/os_version.h"

namespace crv::wsc {

bool isv_available() {
  const OSVERSIONINFOEXW& version = root::OsVersionRecord();
  if (version.dwMajorVersion != 6) return version.dwMajorVersion > 6;
  return version.dwMinorVersion >= 1 || version.wServicePackMajor >= 1;
}

bool wmi_has_security_center2() { return root::OsVersionRecord().dwMajorVersion >= 6; }

}  // namespace crv::wsc
