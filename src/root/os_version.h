// The true version of Windows, whatever a compatibility setting makes other functions report. Read-only once it is filled; any
// thread.
#pragma once

#include <windows.h>

namespace crv::root {

// The process-wide record. It is filled while the image that holds this code is being loaded, or by an earlier caller: code that
// runs in static initialisation may use it. When it cannot be filled, loading fails with the exception of ReadOsVersion.
const OSVERSIONINFOEXW& OsVersionRecord();

// Asks the system once more; the record above holds the answer of load time. Throws `crv::exceptions::error` as
// GetProcAddressOrThrow does (proc_address.h) when "ntdll" has no "RtlGetVersion".
OSVERSIONINFOEXW ReadOsVersion();

}  // namespace crv::root
