#include "crashguard/user_crash.h"

#include "crashguard/guard_log.h"

namespace crv::crashguard {
namespace {

DWORD WINAPI SleepAndCrash(void* delay) {
  const DWORD milliseconds = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(delay));
  Record([&] { log::Warning(tag, "User-initiated crash in %d ms", static_cast<int>(milliseconds)); });
  Sleep(milliseconds);
  CrashNow();
  return 0;
}

}  // namespace

// The write stands in a function of its own, whose name and line a debugger shows.
[[gnu::noinline]] void CrashNow() {
  Record([] { log::Warning(tag, "User-initiated crash commencing"); });
  volatile char* volatile const nothing = nullptr;  // the compiler does not know where it points
  *nothing = 1;
}

HANDLE CrashAfter(std::uint32_t delay) {
  return CreateThread(nullptr, 0, &SleepAndCrash, reinterpret_cast<void*>(static_cast<UINT_PTR>(delay)), 0, nullptr);
}

}  // namespace crv::crashguard
