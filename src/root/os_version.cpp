#include "root/os_version.h"

#include "root/proc_address.h"

namespace crv::root {
namespace {

// Fills the record at load time. It stands beside the function that every reader calls, so the linker never drops it.
[[maybe_unused]] const OSVERSIONINFOEXW& filled_at_load = OsVersionRecord();

}  // namespace

OSVERSIONINFOEXW ReadOsVersion() {
  using RtlGetVersionFunction = LONG WINAPI(OSVERSIONINFOEXW * version);
  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
  GetProcAddressOrThrow<RtlGetVersionFunction>(L"ntdll", "RtlGetVersion")(&version);
  return version;
}

const OSVERSIONINFOEXW& OsVersionRecord() {
  static const OSVERSIONINFOEXW record = ReadOsVersion();
  return record;
}

}  // namespace crv::root
