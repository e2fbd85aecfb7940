#include "root/file_version.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <winver.h>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

std::string Read() {
  std::string text;
  const std::string thrown = test::Thrown([&] {
    const FileVersion version = GetFileVersion(L"x.dll");
    for (const int part : {version.major, version.minor, version.build, version.revision}) text += std::to_string(part) + " ";
  });
  return text.empty() ? thrown : text;
}

TEST(FileVersion_, IsReadFromTheFixedInformationAndFailuresNameTheCall) {
  EXPECT_EQ("error 00000002 GetFileVersionInfoSizeW", Read());
  VS_FIXEDFILEINFO info = {0xFEEF04BD, 0x00010000, 0xFFFF0002, 0x0003FFFE, 0x00050006, 0x00070008};
  UINT size = sizeof(info);
  BOOL loaded = FALSE, found = FALSE;
  const test::ImportFake<decltype(GetFileVersionInfoSizeW)> measure(
      "version.dll", "GetFileVersionInfoSizeW", [](auto...) { return 100; });
  const test::ImportFake<decltype(GetFileVersionInfoW)> load(
      "version.dll", "GetFileVersionInfoW", [&](auto...) { return SetLastError(ERROR_READ_FAULT), loaded; });
  const test::ImportFake<decltype(VerQueryValueW)> query(
      "version.dll", "VerQueryValueW", [&](auto, auto, std::wstring path, void** value, UINT* bytes) {
        EXPECT_EQ(L"\\", path);
        *value = &info;
        *bytes = size;
        return SetLastError(ERROR_CRC), found;
      });
  EXPECT_EQ("error 0000001e GetFileVersionInfoW", Read());
  loaded = TRUE;
  EXPECT_EQ("error 00000017 VerQueryValueW", Read());
  found = TRUE;
  EXPECT_EQ("65535 2 3 65534 ", Read());
  --size;
  EXPECT_EQ("error 00000017 VerQueryValueW signature is invalid", Read());
  ++size;
  --info.dwSignature;
  EXPECT_EQ("error 00000017 VerQueryValueW signature is invalid", Read());
}

}  // namespace
}  // namespace crv::root
