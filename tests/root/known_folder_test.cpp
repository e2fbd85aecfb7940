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

TEST(KnownFolder, AsksTheShellThenFallsBackForTwoFoldersAndReportsEveryFailure) {
  EXPECT_EQ(L"C:\\ProgramData", GetKnownFolderPath(CSIDL_COMMON_APPDATA));
  const std::wstring longest(260, L'x');
  const struct {
    std::uint32_t csidl;
    HRESULT shell;
    UINT windows_length;
    std::wstring registry, expected;
    std::string thrown = "nothing";
  } cases[] = {
      {0x8024, S_FALSE, 6, L"", L"X:\\WIN"},
      {0x24, E_FAIL, 0, L"", L"", "error 0000000f Unable to retrieve a path of the known folder (36)!"},
      {0x24, E_FAIL, 261, L"", L"", "error 000000ea Unable to retrieve a path of the known folder (36)!"},
      {0x8023, E_FAIL, 6, L"", L"", "error 00000002 Unable to retrieve a path of the known folder (32803)!"},
      {0x23, S_FALSE, 6, longest + L"y", longest},
      {0x26, E_INVALIDARG, 6, L"", L"", "error 80070057 Unable to retrieve a path of the known folder (38)!"},
      {0x10024, E_FAIL, 6, L"", L"", "error 80004005 Unable to retrieve a path of the known folder (65572)!"},
  };
  const test::RedirectedHive hive;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportFake<decltype(SHGetFolderPathW)> shell("shell32.dll", "SHGetFolderPathW", [&](auto...) { return c.shell; });
    const test::ImportFake<decltype(GetWindowsDirectoryW)> windows(
        "kernel32.dll", "GetWindowsDirectoryW", [&](auto, auto path, auto) {
          return std::wcscpy(path, L"X:\\WIN"), SetLastError(ERROR_INVALID_DRIVE), c.windows_length;
        });
    const std::wstring shell_folders = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
    SHSetValueW(HKEY_LOCAL_MACHINE, shell_folders.c_str(), c.registry.empty() ? L"another" : L"Common AppData", REG_SZ,
                c.registry.c_str(), c.registry.size() * sizeof(wchar_t));
    std::wstring folder;
    EXPECT_EQ(c.thrown, test::Thrown([&] { folder = GetKnownFolderPath(c.csidl); }));
    EXPECT_EQ(c.expected, folder);
  }
}

}  // namespace
}  // namespace crv::root
