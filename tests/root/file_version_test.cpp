#include "root/file_version.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <winver.h>

#include <cwchar>
#include <filesystem>
#include <optional>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

struct VersionResource {
  WORD size = sizeof(VersionResource);
  WORD value_size = sizeof(VS_FIXEDFILEINFO);
  WORD type = 0;
  wchar_t name[17] = L"VS_VERSION_INFO";
  VS_FIXEDFILEINFO info = {0xFEEF04BD, 0x00010000, 0x00010002, 0x00030004, 0x00050006, 0x00070008, 0, 0, VOS__WINDOWS32, VFT_APP, 0, 0, 0};
};
static_assert(offsetof(VersionResource, info) == 40);

// A program file with the resource that is given.
class FileVersion_ : public testing::Test {
 protected:
  FileVersion_() {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    path_ = std::filesystem::path(program).replace_filename(L"version probe.exe");
  }
  ~FileVersion_() override { EXPECT_TRUE(DeleteFileW(path_.c_str())); }

  void Make(const VersionResource* resource) {
    const std::filesystem::path source = path_.parent_path() / L"parent_probe.exe";
    ASSERT_TRUE(CopyFileW(source.c_str(), path_.c_str(), FALSE));
    if (!resource) return;
    const HANDLE update = BeginUpdateResourceW(path_.c_str(), TRUE);
    EXPECT_TRUE(UpdateResourceW(update, RT_VERSION, MAKEINTRESOURCEW(1), 0x409, const_cast<VersionResource*>(resource), sizeof(*resource)));
    ASSERT_TRUE(EndUpdateResourceW(update, FALSE));
  }
  std::string Read() {
    std::string text;
    const std::string thrown = test::Thrown([&] {
      const FileVersion version = GetFileVersion(path_);
      for (const int part : {version.major, version.minor, version.build, version.revision}) text += std::to_string(part) + " ";
    });
    return text.empty() ? thrown : text;
  }

  std::filesystem::path path_;
};

TEST_F(FileVersion_, IsReadFromTheFixedInformation) {
  VersionResource resource;
  Make(&resource);
  EXPECT_EQ("1 2 3 4 ", Read());
  resource.info.dwFileVersionMS = 0xFFFF0000;
  resource.info.dwFileVersionLS = 0x0000FFFE;
  Make(&resource);
  EXPECT_EQ("65535 0 0 65534 ", Read());
  EXPECT_EQ("error 00000002 GetFileVersionInfoSizeW", test::Thrown([] { GetFileVersion(L"C:\\crv none.exe"); }));
}

TEST_F(FileVersion_, FailuresNameTheCall) {
  Make(nullptr);
  DWORD unused;
  ASSERT_EQ(0u, GetFileVersionInfoSizeW(path_.c_str(), &unused));
  char expected[64];
  std::snprintf(expected, sizeof(expected), "error %08x GetFileVersionInfoSizeW", static_cast<unsigned>(GetLastError()));
  EXPECT_EQ(expected, Read());

  VersionResource resource;
  Make(&resource);
  {
    const test::ImportFake<decltype(GetFileVersionInfoW)> fake("version.dll", "GetFileVersionInfoW",
                                                               [](auto...) { return SetLastError(ERROR_READ_FAULT), FALSE; });
    EXPECT_EQ("error 0000001e GetFileVersionInfoW", Read());
  }
  BOOL found = FALSE;
  std::optional<UINT> size;
  const test::ImportFake<decltype(VerQueryValueW)> fake(
      "version.dll", "VerQueryValueW", [&](auto real, auto block, auto path, void** value, UINT* value_size) -> BOOL {
        const BOOL result = real(block, path, value, value_size);
        *value_size = size.value_or(*value_size);
        SetLastError(ERROR_CRC);
        return found && result;
      });
  EXPECT_EQ("error 00000017 VerQueryValueW", Read());
  found = TRUE;
  EXPECT_EQ("1 2 3 4 ", Read());
  size = sizeof(VS_FIXEDFILEINFO) - 1;
  EXPECT_EQ("error 00000017 VerQueryValueW signature is invalid", Read());
  size.reset();
  resource.info.dwSignature = 0xFEEF04BC;
  Make(&resource);
  EXPECT_EQ("error 00000017 VerQueryValueW signature is invalid", Read());
}

}  // namespace
}  // namespace crv::root
