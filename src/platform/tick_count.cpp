// Windows XP lacks GetTickCount64, and the compiler's thread library imports it, which would keep the whole DLL from loading
// there. This takes the import's place: the system's own function where there is one, GetTickCount made longer elsewhere.
#include <windows.h>

namespace {

using TickCount = ULONGLONG(WINAPI*)();

// Counts how often GetTickCount has begun again at 0; right as long as somebody asks once in the 49 days that it takes.
ULONGLONG WINAPI LongTickCount() {
  static volatile LONGLONG last = 0;
  for (;;) {
    const LONGLONG before = InterlockedCompareExchange64(&last, 0, 0);
    LONGLONG now = (before & ~LONGLONG{0xFFFFFFFF}) | GetTickCount();
    if (now < before) now += LONGLONG{1} << 32;
    if (InterlockedCompareExchange64(&last, now, before) == before) return static_cast<ULONGLONG>(now);
  }
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
  crv_tick_count = found ? found : &LongTickCount;
  return crv_tick_count();
}

}  // namespace
