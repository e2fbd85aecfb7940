#include "instup/find_installation.h"

#include "instup/folders.h"
#include "instup/stage.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

// From the first to be asked to the last, which names its program folder in another value and has no data folder.
const std::wstring kKeys[] = {L"SOFTWARE\\CORVID Software\\Corvid", L"SOFTWARE\\Vantor Software\\Corvid",
                              L"SOFTWARE\\Vantor Software\\Corvid\\5.0", L"SOFTWARE\\Vantor Software\\Corvid\\4.0"};

using FindInstallationTest = test::StageTest;

TEST_F(FindInstallationTest, TakesTheFirstWholeKeyOfTheFirstViewAndItsSetup) {
  test::SetText(kKeys[0], L"ProgramFolder", L"C:\\without data");
  test::SetText(kKeys[1], L"DataFolder", L"C:\\without a program");
  test::SetText(kKeys[2], L"ProgramFolder", L"C:\\with an empty one");
  test::SetText(kKeys[2], L"DataFolder", L"");
  InstallationInfo info;
  EXPECT_FALSE(FindInstallation(info));
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
  info = {};

  // Installed from the last place to be asked to the first, each is alone in front when it is looked for.
  for (const std::wstring& view : {std::wstring(crv::test::k64BitView), std::wstring()}) {
    for (std::size_t i = std::size(kKeys); i-- > 0;) {
      const std::wstring place = L"C:\\" + view + L"place " + std::to_wstring(i);
      const std::wstring key = view + kKeys[i];
      SCOPED_TRACE(testing::PrintToString(place));
      test::SetText(key, i < 3 ? L"ProgramFolder" : L"Corvid4ProgramFolder", place);
      if (i < 3) test::SetText(key, L"DataFolder", place + L" data");
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(place, info.program_folder);
      EXPECT_EQ(i < 3 ? place + L" data" : L"", info.data_folder);
      EXPECT_EQ(place + L"\\setup", info.setup_folder);
      test::SetText(key, L"SetupFolder", L"setup");  // no whole path
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(place + L"\\setup", info.setup_folder);
      EXPECT_EQ(kNoSetupVersion, info.setup_version);
      test::SetText(key, L"SetupFolder", place + L" setup");
      test::SetText(key, L"Version", place);
      const DWORD version = 7;
      test::SetBytes(key, L"SetupVersion", REG_DWORD, &version, sizeof(version));
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(place + L" setup", info.setup_folder);
      EXPECT_EQ(place, info.version);
      EXPECT_EQ(version, info.setup_version);
      info = {};
    }
  }
}

TEST_F(FindInstallationTest, TheProgramFolderIsAWholePathInThe32BitView) {
  const crv::test::ImportFake<decltype(RegOpenKeyExW)> view(
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, auto subkey, DWORD options, REGSAM access, HKEY* key) {
        EXPECT_EQ(REGSAM{KEY_QUERY_VALUE | KEY_WOW64_32KEY}, access);
        return real(root, subkey, options, KEY_QUERY_VALUE, key);
      });
  for (const wchar_t* const partial : {L"", L"program"}) {
    test::SetText(test::kCorvidKey, L"ProgramFolder", partial);
    EXPECT_EQ("error 0000000d Unable to retrieve path of the program directory!", crv::test::Thrown(GetProgramFolder));
  }
  test::SetText(test::kCorvidKey, L"ProgramFolder", L"C:\\program");
  EXPECT_EQ(L"C:\\program", GetProgramFolder());
}

}  // namespace
}  // namespace crv::instup
