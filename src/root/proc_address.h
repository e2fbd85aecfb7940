// Functions that not every Windows has are looked up by name in a module that is already loaded. Nothing is loaded and nothing
// is kept. Any thread.
#pragma once

#include <windows.h>

namespace crv::root {

// The function's address, never null. Throws `crv::exceptions::error` with the last error and "GetModuleHandleW (%s)" with the
// module's name, or "GetProcAddress (%s)" with the function's.
FARPROC GetProcAddressOrThrow(const wchar_t* module, const char* function);

// The address as a pointer to a function of the given type.
template <typename Function>
Function* GetProcAddressOrThrow(const wchar_t* module, const char* function) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddressOrThrow(module, function)));
}

}  // namespace crv::root
