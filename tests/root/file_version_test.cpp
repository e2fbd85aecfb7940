#include "root/file_version.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <winver.h>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

TEST(FileVersion_, IsReadFromFixedInformationOfTheRightSize) {
  EXPECT_EQ("error 00000002 GetFileVersionInfoSizeW", test::Thrown([] { GetFileVersion(L"missing.dll"); }));
  VS_FIXEDFILEINFO info = {0xFEEF04BD, 0x00010000, 0xFFFF0002, 0x0003FFFE, 0x00050006, 0x00070008};
  UINT size = sizeof(info);
  const test::ImportFake<decltype(VerQueryValueW)> query(
      "version.dll", "VerQueryValueW",
      [&](auto, auto, auto, void** value, UINT* bytes) { return *value = &info, *bytes = size, SetLastError(ERROR_CRC), TRUE; });
  const FileVersion version = GetFileVersion(L"kernel32.dll");
  EXPECT_EQ((std::vector<int>{65535, 2, 3, 65534}),
            (std::vector<int>{version.major, version.minor, version.build, version.revision}));
  --size;
  EXPECT_EQ("error 00000017 VerQueryValueW signature is invalid", test::Thrown([] { GetFileVersion(L"kernel32.dll"); }));
}

}  // namespace
}  // namespace crv::root
