// Runs a program as somebody who is no administrator: limited_start PROGRAM ARGS... ends with its exit code.
#include <windows.h>

#include <string>

#include "root/scoped_handle.h"

int main() {
  using namespace crv::root;
  std::wstring line = GetCommandLineW();
  const std::size_t name_end = line[0] == L'"' ? line.find(L'"', 1) + 1 : line.find(L' ');
  line.erase(0, line.find_first_not_of(L' ', name_end));
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  ScopedSidBlock administrators;
  ScopedKernelHandle own, limited;
  PROCESS_INFORMATION started = {};
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                administrators.put()) ||
      !OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, own.put())) {
    return 100;
  }
  SID_AND_ATTRIBUTES denied = {administrators.get(), 0};
  if (!CreateRestrictedToken(own.get(), DISABLE_MAX_PRIVILEGE, 1, &denied, 0, nullptr, 0, nullptr, limited.put()) ||
      !CreateProcessAsUserW(limited.get(), nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                            &started)) {
    return 101;
  }
  DWORD result = 0;
  WaitForSingleObject(started.hProcess, INFINITE);
  GetExitCodeProcess(started.hProcess, &result);
  return static_cast<int>(result);
}
