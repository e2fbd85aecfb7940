#include "root/process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "root/scoped_handle.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

LONG status;

LONG WINAPI Query(HANDLE process, int information_class, ULONG_PTR* information, ULONG size, ULONG* returned) {
  EXPECT_EQ(GetCurrentProcess(), process);
  EXPECT_EQ(0, information_class);
  EXPECT_EQ(24u, size);
  EXPECT_EQ(nullptr, returned);
  for (ULONG_PTR i = 0; i < 6; ++i) information[i] = 100 + i;
  return status;
}

TEST(ParentProcess, IsTheSixthFieldUnlessTheStatusIsNegative) {
  const test::ImportFake<decltype(GetProcAddress)> fake("kernel32.dll", "GetProcAddress", [](auto, HMODULE module, const char* name) {
    EXPECT_EQ(GetModuleHandleW(L"ntdll"), module);
    EXPECT_STREQ("NtQueryInformationProcess", name);
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Query));
  });
  for (const LONG success : {0L, 0x40000000L}) {
    status = success;
    EXPECT_EQ(105u, GetParentProcessId());
  }
  status = static_cast<LONG>(0xC0000004);
  EXPECT_EQ("error c0000004 Unable to retrieve basic process information!", test::Thrown(GetParentProcessId));
}

// Starts a copy of the probe that does not run yet, as a child of the given process.
PROCESS_INFORMATION StartProbe(HANDLE parent) {
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::string attributes(size, '\0');
  STARTUPINFOEXW startup = {};
  startup.StartupInfo.cb = sizeof(startup);
  startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.data());
  EXPECT_TRUE(InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size));
  EXPECT_TRUE(UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_PARENT_PROCESS, &parent, sizeof(parent), nullptr, nullptr));
  wchar_t command[] = L"parent_probe.exe";
  PROCESS_INFORMATION process = {};
  EXPECT_TRUE(CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                             &startup.StartupInfo, &process));
  DeleteProcThreadAttributeList(startup.lpAttributeList);
  return process;
}

TEST(ParentProcess, IsRememberedBeyondItsEnd) {
  const PROCESS_INFORMATION parent = StartProbe(GetCurrentProcess());
  const PROCESS_INFORMATION child = StartProbe(parent.hProcess);
  const ScopedKernelHandle handles[] = {ScopedKernelHandle(parent.hProcess), ScopedKernelHandle(parent.hThread),
                                        ScopedKernelHandle(child.hProcess), ScopedKernelHandle(child.hThread)};
  TerminateProcess(parent.hProcess, 0);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(parent.hProcess, 10000));
  ResumeThread(child.hThread);
  if (WaitForSingleObject(child.hProcess, 10000) != WAIT_OBJECT_0) TerminateProcess(child.hProcess, 0);
  DWORD exit_code = 0;
  EXPECT_TRUE(GetExitCodeProcess(child.hProcess, &exit_code));
  EXPECT_EQ(parent.dwProcessId, exit_code);
}

}  // namespace
}  // namespace crv::root
