// Windows XP lacks GetTickCount64, and the compiler's thread library imports it, which would keep the whole DLL from loading
// there. This takes the import's place: the system's own function where there is one, GetTickCount made longer elsewhere.
#include "platform/tick_count.h"

namespace crv::platform {

ULONGLONG LongTickCount(volatile LONGLONG& last, DWORD(WINAPI* ask)()) {
  for (;;) {
    const LONGLONG before = InterlockedCompareExchange64(&last, 0, 0);
    LONGLONG now = (before & ~LONGLONG{0xFFFFFFFF}) | ask();
    if (now < before) now += LONGLONG{1} << 32;
    if (InterlockedCompareExchange64(&last, now, before) == before) return static_cast<ULONGLONG>(now);
  }
}

}  // namespace crv::platform

namespace {

using TickCount = ULONGLONG(WINAPI*)();

ULONGLONG WINAPI TicksWithoutSystem() {
  static volatile LONGLONG last = 0;
  return crv::platform::LongTickCount(last, &GetTickCount);
}

ULONGLONG WINAPI FindTickCount();

}  // namespace

// What the linker takes for the slot of the import table.
extern "C" {
TickCount crv_tick_count asm("__imp__GetTickCount64@0") = &FindTickCount;
}

namespace {

// The slot points here until the first call.
ULONGLONG WINAPI FindTickCount() {
  const auto found =
      reinterpret_cast<TickCount>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetTickCount64")));
  crv_tick_count = found ? found : &TicksWithoutSystem;
  return crv_tick_count();
}

}  // namespace
