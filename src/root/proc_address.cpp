#include "root/proc_address.h"

#include "base/exceptions.h"

namespace crv::root {

FARPROC GetProcAddressOrThrow(const wchar_t* module, const char* function) {
  const HMODULE handle = GetModuleHandleW(module);
  if (!handle) throw exceptions::error(GetLastError(), L"GetModuleHandleW (%s)", module);
  const FARPROC address = GetProcAddress(handle, function);
  if (!address) throw exceptions::error(GetLastError(), "GetProcAddress (%s)", function);
  return address;
}

}  // namespace crv::root
