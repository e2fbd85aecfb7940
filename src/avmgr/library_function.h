// Functions of the suite's libraries, looked up by name in a library that the caller holds loaded.
#pragma once

#include <windows.h>

#include "base/exceptions.h"

namespace crv::wsc {

// The function's address, never null. Throws `crv::exceptions::error` with the last error and "GetProcAddress (%s)" with its name.
template <typename Function>
Function* ResolveFunction(HMODULE library, const char* name) {
  const FARPROC address = GetProcAddress(library, name);
  if (!address) throw exceptions::error(GetLastError(), "GetProcAddress (%s)", name);
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
}

}  // namespace crv::wsc
