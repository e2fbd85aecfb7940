#include "root/known_folder.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <shlobj.h>
#include <shlwapi.h>

#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

TEST(KnownFolder, FallsBackForTwoFoldersAndReportsEveryFailure) {
  const struct {
    std::uint32_t csidl;
    HRESULT shell;
    std::wstring registry, expected;
    std::string thrown = "nothing";
  } cases[] = {
      {0x8024, S_FALSE, L"", L"C:\\windows"},
      {0x8023, E_FAIL, L"", L"", "error 00000002 Unable to retrieve a path of the known folder (32803)!"},
      {0x23, S_FALSE, std::wstring(261, L'x'), std::wstring(260, L'x')},
      {0x26, E_INVALIDARG, L"", L"", "error 80070057 Unable to retrieve a path of the known folder (38)!"},
  };
  const test::RedirectedHive hive;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportFake<decltype(SHGetFolderPathW)> shell("shell32.dll", "SHGetFolderPathW", [&](auto...) { return c.shell; });
    SHSetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders",
                c.registry.empty() ? L"another" : L"Common AppData", REG_SZ, c.registry.c_str(),
                c.registry.size() * sizeof(wchar_t));
    std::wstring folder;
    EXPECT_EQ(c.thrown, test::Thrown([&] { folder = GetKnownFolderPath(c.csidl); }));
    EXPECT_EQ(c.expected, folder);
  }
}

}  // namespace
}  // namespace crv::root
