// Facts about this process that only NT itself tells. No state; any thread.
#pragma once

#include <cstdint>

namespace crv::root {

// The id that the system recorded for the process that started this one. That process may have ended, and the id may belong to
// another one by now. Throws `crv::exceptions::error` as GetProcAddressOrThrow does (proc_address.h), or with the negative
// NTSTATUS and "Unable to retrieve basic process information!".
std::uint32_t GetParentProcessId();

}  // namespace crv::root
