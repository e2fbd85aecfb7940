#include "shared/machine.h"

#include <windows.h>

#include "root/proc_address.h"

namespace crv::standins {

bool Is64BitWindows() {
  // Windows XP has it from Service Pack 2 on.
  auto* const is_wow64 = root::FindFunction<decltype(IsWow64Process)>(GetModuleHandleW(L"kernel32"), "IsWow64Process");
  BOOL answer = FALSE;
  return is_wow64 && is_wow64(GetCurrentProcess(), &answer) && answer;
}

}  // namespace crv::standins
