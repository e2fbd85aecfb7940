#include "crashguard/filter_lock.h"

#include <windows.h>

#include <utility>

#include "root/proc_address.h"

namespace crv::crashguard {
namespace {

// The function's first eight bytes, the first of them lowest.
constexpr std::int64_t kReturnNull = 0x909090'0004C2'C031;  // xor eax, eax; ret 4; three nop

// Exchanges the function's first bytes at once, since other threads may be about to call it. Gives what was there; nothing when
// the function is missing or its pages are refused.
std::optional<std::int64_t> Exchange(const wchar_t* library, std::int64_t code) {
  auto* const filter =
      root::FindFunction<decltype(SetUnhandledExceptionFilter)>(GetModuleHandleW(library), "SetUnhandledExceptionFilter");
  void* const function = reinterpret_cast<void*>(filter);
  DWORD protection = 0;
  if (!function || !VirtualProtect(function, sizeof(code), PAGE_EXECUTE_READWRITE, &protection)) return std::nullopt;
  const std::int64_t old = InterlockedExchange64(static_cast<volatile LONG64*>(function), code);
  VirtualProtect(function, sizeof(code), protection, &protection);
  FlushInstructionCache(GetCurrentProcess(), function, sizeof(code));
  return old;
}

}  // namespace

void FilterLock::Lock() { saved_ = Exchange(L"Kernel32.dll", kReturnNull); }

void FilterLock::Unlock() {
  if (const std::optional<std::int64_t> saved = std::exchange(saved_, std::nullopt)) Exchange(L"KERNEL32.DLL", *saved);
}

}  // namespace crv::crashguard
