#include "instup/find_installation.h"

#include "instup/stage.h"

namespace crv::instup {
namespace {

struct Key {
  const wchar_t* path;
  const wchar_t* program_value;
  const wchar_t* data_value;
};

// From the first to be asked to the last.
constexpr Key kKeys[] = {
    {L"SOFTWARE\\CORVID Software\\Corvid", L"ProgramFolder", L"DataFolder"},
    {L"SOFTWARE\\Vantor Software\\Corvid", L"ProgramFolder", L"DataFolder"},
    {L"SOFTWARE\\Vantor Software\\Corvid\\5.0", L"ProgramFolder", L"DataFolder"},
    {L"SOFTWARE\\Vantor Software\\Corvid\\4.0", L"Corvid4ProgramFolder", nullptr},
};

constexpr const wchar_t* k64BitView = L"View64\\";

// A second registry view below View64, as a 64-bit system has one.
LSTATUS(WINAPI* real_open)(HKEY, const wchar_t*, DWORD, REGSAM, HKEY*) = nullptr;
LSTATUS WINAPI OpenInView(HKEY root, const wchar_t* subkey, DWORD options, REGSAM access, HKEY* key) {
  const bool other_view = root == HKEY_LOCAL_MACHINE && (access & KEY_WOW64_64KEY) != 0;
  return real_open(root, ((other_view ? k64BitView : L"") + std::wstring(subkey)).c_str(), options, access, key);
}

class FindInstallationTest : public test::StageTest {
 protected:
  FindInstallationTest() { real_open = views_.original<decltype(real_open)>(); }

  static void Install(const std::wstring& view, const Key& key, const std::wstring& place) {
    test::SetText(view + key.path, key.program_value, place);
    if (key.data_value) test::SetText(view + key.path, key.data_value, place + L" data");
  }

  crv::test::ImportPatch views_{"advapi32.dll", "RegOpenKeyExW", reinterpret_cast<void*>(&OpenInView)};
};

TEST_F(FindInstallationTest, TakesTheFirstKeyOfTheFirstView) {
  InstallationInfo none;
  EXPECT_FALSE(FindInstallation(none));
  EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());

  // Installed from the last place to be asked to the first, each is alone in front when it is looked for.
  for (const std::wstring view : {k64BitView, L""}) {
    for (std::size_t i = std::size(kKeys); i-- > 0;) {
      const std::wstring place = view + L"place " + std::to_wstring(i);
      SCOPED_TRACE(testing::PrintToString(place));
      Install(view, kKeys[i], place);
      InstallationInfo info;
      ASSERT_TRUE(FindInstallation(info));
      EXPECT_EQ(0u, GetLastError());
      EXPECT_EQ(place, info.program_folder);
      EXPECT_EQ(kKeys[i].data_value ? place + L" data" : L"", info.data_folder);
      EXPECT_EQ(place + L"\\setup", info.setup_folder);
      EXPECT_EQ(L"", info.version);
      EXPECT_EQ(0xFFFFFFFFu, info.setup_version);
    }
  }
}

TEST_F(FindInstallationTest, ReadsTheSetupOfTheAcceptedKeyInItsView) {
  const Key& key = kKeys[2];
  for (const std::wstring view : {k64BitView, L""}) {
    const std::wstring path = view + key.path;
    Install(view, key, L"C:\\place");
    test::SetText(path, L"SetupFolder", view + L"C:\\its setup");
    test::SetText(path, L"Version", view + L"5.1.889");
    const DWORD version = view.empty() ? 1889 : 64;
    test::SetBytes(path, L"SetupVersion", REG_DWORD, &version, sizeof(version));
    InstallationInfo info;
    ASSERT_TRUE(FindInstallation(info));
    EXPECT_EQ(view + L"C:\\its setup", info.setup_folder);
    EXPECT_EQ(view + L"5.1.889", info.version);
    EXPECT_EQ(version, info.setup_version);
  }

  // The same fields without usable values: what an earlier call left there does not survive.
  test::SetText(key.path, L"SetupVersion", L"1889");
  test::DeleteValue(key.path, L"Version");
  test::DeleteValue(key.path, L"SetupFolder");
  InstallationInfo info;
  info.setup_folder = info.version = L"old";
  info.setup_version = 7;
  ASSERT_TRUE(FindInstallation(info));
  EXPECT_EQ(L"C:\\place\\setup", info.setup_folder);
  EXPECT_EQ(L"", info.version);
  EXPECT_EQ(0xFFFFFFFFu, info.setup_version);
}

TEST_F(FindInstallationTest, PassesOverKeysThatLackAFolder) {
  test::SetText(kKeys[0].path, L"ProgramFolder", L"only a program");
  test::SetText(kKeys[1].path, L"DataFolder", L"only data");
  test::SetText(kKeys[3].path, L"ProgramFolder", L"the name of later versions");
  InstallationInfo info;
  EXPECT_FALSE(FindInstallation(info));
  EXPECT_EQ(L"only a program", info.program_folder);
  EXPECT_EQ(L"", info.data_folder);

  Install(L"", kKeys[3], L"C:\\place");
  EXPECT_TRUE(FindInstallation(info));
  EXPECT_EQ(L"C:\\place", info.program_folder);
  EXPECT_EQ(L"", info.data_folder);
}

}  // namespace
}  // namespace crv::instup
