#include "instup/find_installation.h"

#include "instup/stage.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

struct Key {
  std::wstring path;
  const wchar_t* program_value = L"ProgramFolder";
  const wchar_t* data_value = L"DataFolder";
};

// From the first to be asked to the last.
const Key kKeys[] = {{L"SOFTWARE\\CORVID Software\\Corvid"},
                     {L"SOFTWARE\\Vantor Software\\Corvid"},
                     {L"SOFTWARE\\Vantor Software\\Corvid\\5.0"},
                     {L"SOFTWARE\\Vantor Software\\Corvid\\4.0", L"Corvid4ProgramFolder", nullptr}};

const std::wstring k64BitView = L"View64\\";

// With a second registry view below View64, as a 64-bit system has one.
class FindInstallationTest : public test::StageTest {
 protected:
  static void Install(const std::wstring& view, const Key& key, const std::wstring& place) {
    test::SetText(view + key.path, key.program_value, place);
    if (key.data_value) test::SetText(view + key.path, key.data_value, place + L" data");
  }

 private:
  crv::test::ImportFake<decltype(RegOpenKeyExW)> views_{
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, std::wstring subkey, DWORD options, REGSAM access, HKEY* key) {
        const bool other_view = root == HKEY_LOCAL_MACHINE && (access & KEY_WOW64_64KEY) != 0;
        return real(root, ((other_view ? k64BitView : L"") + subkey).c_str(), options, access, key);
      }};
};

TEST_F(FindInstallationTest, TakesTheFirstWholeKeyOfTheFirstViewAndItsSetup) {
  test::SetText(kKeys[0].path, L"ProgramFolder", L"without data");
  test::SetText(kKeys[1].path, L"DataFolder", L"without a program");
  test::SetText(kKeys[3].path, L"ProgramFolder", L"the name of later versions");
  InstallationInfo none;
  EXPECT_FALSE(FindInstallation(none));
  EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());

  // Installed from the last place to be asked to the first, each is alone in front when it is looked for.
  for (const std::wstring& view : {k64BitView, std::wstring()}) {
    for (std::size_t i = std::size(kKeys); i-- > 0;) {
      const std::wstring place = view + L"place " + std::to_wstring(i);
      const std::wstring key = view + kKeys[i].path;
      SCOPED_TRACE(testing::PrintToString(place));
      Install(view, kKeys[i], place);
      InstallationInfo info;
      info.setup_folder = info.version = L"old";
      info.setup_version = 7;
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(0u, GetLastError());
      EXPECT_EQ(place, info.program_folder);
      if (kKeys[i].data_value) {
        EXPECT_EQ(place + L" data", info.data_folder);
      }
      EXPECT_EQ(place + L"\\setup", info.setup_folder);
      EXPECT_EQ(L"", info.version);
      EXPECT_EQ(0xFFFFFFFFu, info.setup_version);

      test::SetText(key, L"SetupFolder", place + L" setup");
      test::SetText(key, L"Version", place + L" 5.1.889");
      test::SetBytes(key, L"SetupVersion", REG_DWORD, &i, sizeof(DWORD));
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(place + L" setup", info.setup_folder);
      EXPECT_EQ(place + L" 5.1.889", info.version);
      EXPECT_EQ(i, info.setup_version);
    }
  }
}

}  // namespace
}  // namespace crv::instup
