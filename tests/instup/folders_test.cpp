#include "instup/folders.h"

#include <shlobj.h>

#include "instup/stage.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

using crv::test::Thrown;
using Folders = test::StageTest;

TEST_F(Folders, DataFoldersHangOffTheCommonApplicationData) {
  EXPECT_EQ(L"C:\\ProgramData\\CORVID Software\\Corvid", GetDataFolder());
  EXPECT_EQ(L"C:\\ProgramData\\CORVID Software\\Persistent Data\\Corvid", GetPersistentDataFolder());
  const crv::test::ImportFake<decltype(SHGetFolderPathW)> none("shell32.dll", "SHGetFolderPathW", [](auto...) { return E_FAIL; });
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!", Thrown(GetDataFolder));
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!", Thrown(GetPersistentDataFolder));
}

TEST_F(Folders, ProgramFolderComesFromThe32BitViewExpanded) {
  const crv::test::ImportFake<decltype(RegOpenKeyExW)> one_view(
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, auto subkey, DWORD options, REGSAM access, HKEY* key) {
        return access & KEY_WOW64_32KEY ? real(root, subkey, options, access, key) : ERROR_ACCESS_DENIED;
      });
  EXPECT_EQ("error 00000002 Unable to retrieve path of the program directory!", Thrown(GetProgramFolder));
  const DWORD number = 1;
  test::SetBytes(test::kCorvidKey, L"ProgramFolder", REG_DWORD, &number, sizeof(number));
  EXPECT_EQ("error 0000000d Unable to retrieve path of the program directory!", Thrown(GetProgramFolder));
  const test::ScopedVariable variable(L"CRV_TEST_PLACE", L"D:\\Place");
  test::SetText(test::kCorvidKey, L"ProgramFolder", L"%CRV_TEST_PLACE%\\Corvid\\", REG_EXPAND_SZ);
  EXPECT_EQ(L"D:\\Place\\Corvid\\", GetProgramFolder());
}

}  // namespace
}  // namespace crv::instup
