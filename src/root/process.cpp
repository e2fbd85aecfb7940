#include "root/process.h"

#include <windows.h>
#include <winternl.h>

#include "base/exceptions.h"
#include "root/proc_address.h"

namespace crv::root {

std::uint32_t GetParentProcessId() {
  static_assert(sizeof(PROCESS_BASIC_INFORMATION) == 24);
  PROCESS_BASIC_INFORMATION information = {};
  const NTSTATUS status = GetProcAddressOrThrow<decltype(NtQueryInformationProcess)>(L"ntdll", "NtQueryInformationProcess")(
      GetCurrentProcess(), ProcessBasicInformation, &information, sizeof(information), nullptr);
  if (!NT_SUCCESS(status)) throw exceptions::error(status, "Unable to retrieve basic process information!");
  return information.InheritedFromUniqueProcessId;
}

std::uint32_t WaitForExitCode(HANDLE process) {
  if (WaitForSingleObject(process, INFINITE) != WAIT_OBJECT_0) throw exceptions::error(GetLastError(), "WaitForSingleObject");
  DWORD code = 0;
  if (!GetExitCodeProcess(process, &code)) throw exceptions::error(GetLastError(), "GetExitCodeProcess");
  return code;
}

}  // namespace crv::root
