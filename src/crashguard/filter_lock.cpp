#include "crashguard/filter_lock.h"

#include <windows.h>

#include <cstring>

namespace crv::crashguard {
namespace {

using Code = std::array<unsigned char, 8>;

constexpr Code kReturnNull = {
    0x31, 0xC0,        // xor eax, eax
    0xC2, 0x04, 0x00,  // ret 4
    0x90, 0x90, 0x90,
};

// Exchanges the function's first bytes; false when it is not there or the pages are refused.
bool Exchange(const wchar_t* library, const Code& code, Code* old) {
  void* const function = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), "SetUnhandledExceptionFilter"));
  DWORD protection = 0;
  if (!function || !VirtualProtect(function, sizeof(code), PAGE_EXECUTE_READWRITE, &protection)) return false;
  if (old) std::memcpy(old, function, sizeof(code));
  std::memcpy(function, &code, sizeof(code));
  VirtualProtect(function, sizeof(code), protection, &protection);
  FlushInstructionCache(GetCurrentProcess(), function, sizeof(code));
  return true;
}

}  // namespace

void FilterLock::Lock() { Exchange(L"Kernel32.dll", kReturnNull, &saved_); }

void FilterLock::Unlock() {
  if (saved_ == Code{}) return;
  Exchange(L"KERNEL32.DLL", saved_, nullptr);
  saved_ = {};
}

}  // namespace crv::crashguard
