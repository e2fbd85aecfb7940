#include "root/known_folder.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <shlobj.h>

#include "support/import_patch.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

HRESULT shell_result;
UINT windows_length;

HRESULT WINAPI ShellAnswers(HWND, int, HANDLE, DWORD, wchar_t* path) {
  path[0] = L'\0';
  return shell_result;
}

UINT WINAPI WindowsAnswers(wchar_t* path, UINT) {
  std::wcscpy(path, L"X:\\WIN");
  SetLastError(ERROR_INVALID_DRIVE);
  return windows_length;
}

void StoreCommonAppData(const std::wstring& folder) {
  HKEY key = nullptr;
  RegCreateKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders", &key);
  EXPECT_EQ(0, RegSetValueExW(key, L"Common AppData", 0, REG_SZ, reinterpret_cast<const BYTE*>(folder.c_str()), folder.size() * 2 + 2));
  RegCloseKey(key);
}

TEST(KnownFolder, AsksTheShellFirst) {
  wchar_t windows[MAX_PATH];
  GetWindowsDirectoryW(windows, MAX_PATH);
  EXPECT_EQ(windows, GetKnownFolderPath(CSIDL_WINDOWS));
  EXPECT_EQ(L"C:\\ProgramData", GetKnownFolderPath(CSIDL_COMMON_APPDATA));
}

TEST(KnownFolder, FallsBackForTwoFoldersAndReportsEveryFailure) {
  const test::RedirectedHive hive;
  const test::ImportPatch shell("shell32.dll", "SHGetFolderPathW", reinterpret_cast<void*>(&ShellAnswers));
  const test::ImportPatch windows("kernel32.dll", "GetWindowsDirectoryW", reinterpret_cast<void*>(&WindowsAnswers));
  struct Case {
    std::uint32_t csidl;
    HRESULT shell;
    UINT windows;
    std::wstring registry, expected;
    std::string thrown;
  };
  const std::wstring longest(260, L'x');
  const Case cases[] = {
      {0x24, E_FAIL, 6, L"", L"X:\\WIN", "nothing"},
      {0x8024, S_FALSE, 6, L"", L"X:\\WIN", "nothing"},
      {0x24, E_FAIL, 0, L"", L"", "error 0000000f Unable to retrieve a path of the known folder (36)!"},
      {0x24, E_FAIL, 261, L"", L"", "error 000000ea Unable to retrieve a path of the known folder (36)!"},
      {0x8023, E_FAIL, 6, L"", L"", "error 00000002 Unable to retrieve a path of the known folder (32803)!"},
      {0x23, S_FALSE, 6, L"D:\\Data", L"D:\\Data", "nothing"},
      {0x8023, E_FAIL, 6, longest, longest, "nothing"},
      {0x23, E_FAIL, 6, longest + L"y", longest, "nothing"},
      {0x26, E_INVALIDARG, 6, L"", L"", "error 80070057 Unable to retrieve a path of the known folder (38)!"},
      {0x10024, E_FAIL, 6, L"", L"", "error 80004005 Unable to retrieve a path of the known folder (65572)!"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    shell_result = c.shell;
    windows_length = c.windows;
    if (!c.registry.empty()) StoreCommonAppData(c.registry);
    std::wstring folder;
    EXPECT_EQ(c.thrown, test::Thrown([&] { folder = GetKnownFolderPath(c.csidl); }));
    EXPECT_EQ(c.expected, folder);
  }
}

}  // namespace
}  // namespace crv::root
