#include "root/proc_address.h"

#include "base/exceptions.h"

namespace crv::root {

HMODULE GetModuleOrThrow(const wchar_t* module) {
  const HMODULE handle = GetModuleHandleW(module);
  if (!handle) throw exceptions::error(GetLastError(), L"GetModuleHandleW (%s)", module);
  return handle;
}

void ThrowMissingFunction(const char* name) { throw exceptions::error(GetLastError(), "GetProcAddress (%s)", name); }

}  // namespace crv::root
