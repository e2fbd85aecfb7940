#include "instup/folders.h"

#include <shlobj.h>

#include "instup/stage.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

using Folders = test::StageTest;
using test::kCorvidKey;

TEST_F(Folders, DataFoldersHangOffTheCommonApplicationData) {
  wchar_t common[MAX_PATH];
  ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, 35, nullptr, 0, common));
  EXPECT_EQ(common + std::wstring(L"\\CORVID Software\\Corvid"), GetDataFolder());
  EXPECT_EQ(common + std::wstring(L"\\CORVID Software\\Persistent Data\\Corvid"), GetPersistentDataFolder());
}

HRESULT WINAPI NoFolder(HWND, int, HANDLE, DWORD, wchar_t*) { return E_FAIL; }

TEST_F(Folders, DataFoldersPassErrorsOn) {
  const crv::test::ImportPatch patch("shell32.dll", "SHGetFolderPathW", reinterpret_cast<void*>(&NoFolder));
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!", crv::test::Thrown([] { GetDataFolder(); }));
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!",
            crv::test::Thrown([] { GetPersistentDataFolder(); }));
}

// Lets only openings with the 32-bit view flag through.
LSTATUS(WINAPI* real_open)(HKEY, const wchar_t*, DWORD, REGSAM, HKEY*) = nullptr;
LSTATUS WINAPI OnlyThe32BitView(HKEY root, const wchar_t* subkey, DWORD options, REGSAM access, HKEY* key) {
  if ((access & (KEY_WOW64_32KEY | KEY_WOW64_64KEY)) != KEY_WOW64_32KEY) return ERROR_ACCESS_DENIED;
  return real_open(root, subkey, options, access, key);
}

TEST_F(Folders, ProgramFolderComesFromThe32BitViewExpanded) {
  const crv::test::ImportPatch patch("advapi32.dll", "RegOpenKeyExW", reinterpret_cast<void*>(&OnlyThe32BitView));
  real_open = patch.original<decltype(real_open)>();
  test::SetText(kCorvidKey, L"ProgramFolder", L"C:\\Corvid\\");
  EXPECT_EQ(L"C:\\Corvid\\", GetProgramFolder());
  const test::ScopedVariable variable(L"CRV_TEST_PLACE", L"D:\\Place");
  test::SetText(kCorvidKey, L"ProgramFolder", L"%CRV_TEST_PLACE%\\Corvid", REG_EXPAND_SZ);
  EXPECT_EQ(L"D:\\Place\\Corvid", GetProgramFolder());
}

TEST_F(Folders, ProgramFolderFailsWithTheRegistrysCode) {
  const std::string text = " Unable to retrieve path of the program directory!";
  EXPECT_EQ("error 00000002" + text, crv::test::Thrown([] { GetProgramFolder(); }));
  const DWORD number = 1;
  test::SetBytes(kCorvidKey, L"ProgramFolder", REG_DWORD, &number, sizeof(number));
  EXPECT_EQ("error 0000000d" + text, crv::test::Thrown([] { GetProgramFolder(); }));
}

}  // namespace
}  // namespace crv::instup
