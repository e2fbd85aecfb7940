#include "platform/stack_guarantee.h"

namespace crv::platform {

void GuaranteeStack(ULONG bytes) {
  using Guarantee = BOOL(WINAPI*)(ULONG*);
  const auto guarantee = reinterpret_cast<Guarantee>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadStackGuarantee")));
  if (guarantee) guarantee(&bytes);
}

}  // namespace crv::platform
