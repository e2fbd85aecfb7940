// Crashes on request, for trying the way from a crash to its dump: each writes one byte to address 0. Any thread.
#pragma once

#include <windows.h>

#include <cstdint>

namespace crv::crashguard {

void CrashNow();

// Crashes in `delay` ms on a thread of its own, whose handle the caller owns; null with the last error when there is none.
[[nodiscard]] HANDLE CrashAfter(std::uint32_t delay);

}  // namespace crv::crashguard
