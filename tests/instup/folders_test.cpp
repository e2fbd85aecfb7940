#include "instup/folders.h"

#include "instup/stage.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

using Folders = test::StageTest;

TEST_F(Folders, ProgramFolderComesFromThe32BitViewExpanded) {
  const crv::test::ImportFake<decltype(RegOpenKeyExW)> one_view(
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, auto subkey, DWORD options, REGSAM access, HKEY* key) {
        return access & KEY_WOW64_32KEY ? real(root, subkey, options, access, key) : ERROR_ACCESS_DENIED;
      });
  EXPECT_EQ("error 00000002 Unable to retrieve path of the program directory!", crv::test::Thrown(GetProgramFolder));
  const test::ScopedVariable variable(L"CRV_TEST_PLACE", L"D:\\Place");
  test::SetText(test::kCorvidKey, L"ProgramFolder", L"%CRV_TEST_PLACE%\\Corvid\\", REG_EXPAND_SZ);
  EXPECT_EQ(L"D:\\Place\\Corvid\\", GetProgramFolder());
  EXPECT_EQ(L"C:\\ProgramData\\CORVID Software\\Corvid", GetDataFolder());
  EXPECT_EQ(L"C:\\ProgramData\\CORVID Software\\Persistent Data\\Corvid", GetPersistentDataFolder());
}

}  // namespace
}  // namespace crv::instup
