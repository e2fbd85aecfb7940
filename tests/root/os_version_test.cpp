#include "root/os_version.h"

#include <gtest/gtest.h>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

// The only reader of the record in this program, so a record that is not filled while the program is being loaded is filled here,
// and fails.
TEST(OsVersion, RecordIsFilledAtLoadAndReadingAgainTellsWhatIsMissing) {
  {
    const test::ImportFake<decltype(GetProcAddress)> no_function("kernel32.dll", "GetProcAddress",
                                                                 [](auto...) { return SetLastError(127), nullptr; });
    EXPECT_NE(0u, OsVersionRecord().dwMajorVersion);
    EXPECT_EQ("error 0000007f GetProcAddress (RtlGetVersion)", test::Thrown([] { ReadOsVersion(); }));
    const test::ImportFake<decltype(GetModuleHandleW)> no_module("kernel32.dll", "GetModuleHandleW",
                                                                 [](auto...) { return SetLastError(126), nullptr; });
    EXPECT_EQ("error 0000007e GetModuleHandleW (ntdll)", test::Thrown([] { ReadOsVersion(); }));
  }
  OSVERSIONINFOEXW reported = {};
  reported.dwOSVersionInfoSize = sizeof(reported);
  ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&reported)));
  for (const OSVERSIONINFOEXW& version : {OsVersionRecord(), ReadOsVersion()}) {
    EXPECT_EQ(284u, version.dwOSVersionInfoSize);
    EXPECT_EQ(reported.dwMajorVersion, version.dwMajorVersion);
    EXPECT_EQ(reported.dwBuildNumber, version.dwBuildNumber);
    EXPECT_EQ(reported.wServicePackMajor, version.wServicePackMajor);
  }
}

}  // namespace
}  // namespace crv::root
