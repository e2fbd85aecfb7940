// Functions looked up by name, typed: `FindFunction<Signature>(module, "name")`. For what not every Windows has, and for the
// libraries that are loaded at run time. Nothing is loaded and nothing is kept. Any thread.
#pragma once

#include <windows.h>

namespace crv::root {

// Null, with the reason in the last error, when the module lacks the function; null also for a null module, which leaves the last
// error of whoever looked the module up.
template <typename Function>
[[nodiscard]] Function* FindFunction(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(module ? GetProcAddress(module, name) : nullptr));
}

// The module of that name if it is loaded already. Throws `crv::exceptions::error` with the last error and
// "GetModuleHandleW (%s)" with the name.
[[nodiscard]] HMODULE GetModuleOrThrow(const wchar_t* module);

[[noreturn]] void ThrowMissingFunction(const char* name);

// The function's address, never null. Throws `crv::exceptions::error` with the last error and "GetProcAddress (%s)" with the
// function's name.
template <typename Function>
[[nodiscard]] Function* GetProcAddressOrThrow(HMODULE module, const char* name) {
  Function* const function = FindFunction<Function>(module, name);
  if (!function) ThrowMissingFunction(name);
  return function;
}

// The same in a module that is loaded already. Throws also as GetModuleOrThrow does.
template <typename Function>
[[nodiscard]] Function* GetProcAddressOrThrow(const wchar_t* module, const char* name) {
  return GetProcAddressOrThrow<Function>(GetModuleOrThrow(module), name);
}

}  // namespace crv::root
