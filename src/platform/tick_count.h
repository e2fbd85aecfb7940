// GetTickCount made longer, for the systems that lack GetTickCount64.
#pragma once

#include <windows.h>

namespace crv::platform {

// Milliseconds since the system began, which go on where `ask`, 32 bits of them as GetTickCount gives, begins again at 0. `last` is what
// was answered before, 0 at first, the same for all threads. Right as long as somebody asks once in the 49 days that it takes. Never fails.
[[nodiscard]] ULONGLONG LongTickCount(volatile LONGLONG& last, DWORD(WINAPI* ask)());

}  // namespace crv::platform
