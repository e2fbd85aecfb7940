// Functions of the system's own libraries that only a few requests need: the library is loaded from the system folder at the first
// question, not with the module, and stays until the process ends. Any thread, but not while a crash is handled: what that needs is asked
// for before.
#pragma once

#include <windows.h>

#include "root/proc_address.h"

namespace crv::root {

// The library, known by its file name; null with the last error when it cannot be loaded.
[[nodiscard]] HMODULE GetSystemLibrary(const wchar_t* file) noexcept;

// Null, with the reason in the last error, when the library cannot be loaded or lacks the function.
template <typename Function>
[[nodiscard]] Function* FindSystemFunction(const wchar_t* file, const char* name) noexcept {
  return FindFunction<Function>(GetSystemLibrary(file), name);
}

}  // namespace crv::root
