// What NT itself tells, through functions that are looked up by name.
#include "root/process.h"

#include <gtest/gtest.h>

#include "root/os_version.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

LONG status;

LONG WINAPI Query(HANDLE process, int information_class, ULONG_PTR* information, ULONG size, ULONG*) {
  EXPECT_TRUE(process == GetCurrentProcess() && information_class == 0 && size == 24);
  for (ULONG_PTR i = 0; i < 6; ++i) information[i] = 100 + i;
  return status;
}

TEST(ParentProcess, IsTheSixthFieldUnlessTheStatusIsNegative) {
  const test::ImportFake<decltype(GetProcAddress)> fake(
      "kernel32.dll", "GetProcAddress", [](auto real, HMODULE module, std::string name) {
        const auto query = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Query));
        return name == "NtQueryInformationProcess" ? query : real(module, name.c_str());
      });
  status = 0x40000000;
  EXPECT_EQ(105u, GetParentProcessId());
  status = static_cast<LONG>(0xC0000004);
  EXPECT_EQ("error c0000004 Unable to retrieve basic process information!", test::Thrown(GetParentProcessId));
}

// The only reader of the record in this program: one that is not filled while the program is being loaded is filled here, and
// fails.
TEST(OsVersion, RecordIsFilledAtLoadAndReadingAgainTellsWhatIsMissing) {
  const test::ImportFake<decltype(GetProcAddress)> no_function(
      "kernel32.dll", "GetProcAddress", [](auto...) { return SetLastError(127), nullptr; });
  EXPECT_NE(0u, OsVersionRecord().dwBuildNumber);
  EXPECT_EQ("error 0000007f GetProcAddress (RtlGetVersion)", test::Thrown(ReadOsVersion));
  const test::ImportFake<decltype(GetModuleHandleW)> no_module(
      "kernel32.dll", "GetModuleHandleW", [](auto...) { return SetLastError(126), nullptr; });
  EXPECT_EQ("error 0000007e GetModuleHandleW (ntdll)", test::Thrown(ReadOsVersion));
}

}  // namespace
}  // namespace crv::root
