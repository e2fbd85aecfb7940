// The process that started this one, and the ends of those that this one starts. No state; any thread.
#pragma once

#include <windows.h>

#include <cstdint>

namespace crv::root {

// The id that the system recorded for the process that started this one. That process may have ended, and the id may belong to
// another one by now. Throws `crv::exceptions::error` as GetProcAddressOrThrow does (proc_address.h), or with the negative
// NTSTATUS and "Unable to retrieve basic process information!".
[[nodiscard]] std::uint32_t GetParentProcessId();

// Waits without a limit until the process has ended and returns its exit code. The handle stays the caller's. Throws
// `crv::exceptions::error` with the last error and "WaitForSingleObject" or "GetExitCodeProcess".
[[nodiscard]] std::uint32_t WaitForExitCode(HANDLE process);

}  // namespace crv::root
