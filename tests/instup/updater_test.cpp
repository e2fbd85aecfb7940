// Where the installer is, and the two runs that update the suite.
#include "instup/updater.h"

#include <shlobj.h>

#include "instup/installer_state.h"
#include "support/import_fake.h"
#include "support/probed_installer.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

constexpr char kFirstRun[] = "\"SETUP\\instup.exe\" /instop:update_setup /wait";
constexpr char kSecondRun[] = "\"SETUP\\New_1\\instup.exe\" /instop:update_vps_and_program /wait";
constexpr char kRepairRun[] = "\"SETUP\\instup.exe\"";
constexpr std::uint8_t kUntouched = 0xEE;

// The installed suite, and a folder for common application data.
class Installer : public testing::Test {
 protected:
  HRESULT folder_result_ = S_OK;
  crv::test::ProbedInstaller suite_;
  const std::wstring reboot_marker_ = L"CORVID Software\\Persistent Data\\Corvid\\Reboot.txt";

 private:
  const crv::test::ImportFake<decltype(SHGetFolderPathW)> common_{
      "shell32.dll", "SHGetFolderPathW", [this](auto, HWND, int, HANDLE, DWORD, wchar_t* path) {
        wcscpy(path, std::filesystem::path(suite_.Path(L"x")).parent_path().c_str());
        return folder_result_;
      }};
};

TEST_F(Installer, IsFoundWithTheDirectoryThatItsSettingsName) {
  const struct {
    const char* settings;
    const wchar_t* folder;  // behind the setup folder
  } cases[] = {{"[Common]\nNewDirectoryName=a\\b ", L"\\a\\b"}, {"[Common]\nNewDirectoryName=", L""}, {"[Other]\nx=y", L"\\New"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings);
    std::ofstream(suite_.settings_.c_str(), std::ios::binary) << c.settings;
    State state;
    ASSERT_TRUE(state.Locate());
    EXPECT_EQ(suite_.Path(L"program"), state.program_folder());
    EXPECT_EQ(suite_.Path(L"data"), state.data_folder());
    EXPECT_EQ(suite_.setup_ + L"\\Instup.dll", state.current_library());
    EXPECT_EQ(suite_.setup_ + L"\\instup.exe", state.current_installer());
    EXPECT_EQ(suite_.setup_ + c.folder + L"\\Instup.dll", state.new_library());
    EXPECT_EQ(suite_.setup_ + c.folder + L"\\instup.exe", state.new_installer());
  }
}

TEST_F(Installer, TheRebootMarkerIsAFile) {
  bool reboot = true;
  EXPECT_TRUE(CheckRebootMarker(reboot));
  EXPECT_FALSE(reboot);
  suite_.AddFolder(reboot_marker_);
  reboot = true;
  EXPECT_TRUE(CheckRebootMarker(reboot));
  EXPECT_FALSE(reboot) << "a folder of that name";
  std::filesystem::remove(suite_.Path(reboot_marker_));
  suite_.AddFile(reboot_marker_);
  std::uint8_t due = kUntouched;
  EXPECT_TRUE(RunUpdater(nullptr, &due));
  EXPECT_EQ(1, due);
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
  EXPECT_FALSE(CheckRebootMarker(reboot));
  EXPECT_TRUE(reboot) << "looked at all the same";
  suite_.Register(test::kCorvidKey);
  test::SetText(test::kCorvidKey, L"SetupFolder", suite_.setup_);
  folder_result_ = E_FAIL;
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!",
            crv::test::Thrown([&] { RunUpdater(nullptr, &due); }));
  EXPECT_TRUE(RunUpdater(nullptr, nullptr)) << "without a place nobody looks";
}

TEST_F(Installer, EveryOutcomeOfTheRunsHasItsResult) {
  const std::wstring new_installer = suite_.setup_ + L"\\New_1\\instup.exe", installer = suite_.setup_ + L"\\instup.exe";
  const struct {
    const char *first, *second;  // what the runs do
    std::wstring missing;        // at the start: a file, or the registry's "ProgramFolder"
    bool result;
    std::uint32_t code;
    bool reboot;  // the place is written
    std::vector<std::string> runs;
  } cases[] = {
      {"", "", L"", true, 0, true, {kFirstRun, kSecondRun}},
      {"exit\t3", "", L"", true, 3, false, {kFirstRun}},
      {"", "exit\t0xc0000005", L"", true, 0xC0000005, true, {kFirstRun, kSecondRun}},
      {"", "", L"ProgramFolder", false, 0, false, {}},
      {"", "", installer, false, 0, false, {}},
      {"", "", new_installer, false, 0, false, {kFirstRun}},
      {"write\tINI\tgone", "", L"", false, 0, false, {kFirstRun}},  // the directory named by the first run counts
      // The second search fails, also after its repair run: the new installer of the first one runs. The reboot check searches a
      // third time, in vain.
      {"delete\tINI", "", L"", true, 0, false, {kFirstRun, kRepairRun, kSecondRun, kRepairRun}},
      {"", "", suite_.settings_, false, 0, false, {kRepairRun}},
      {"write\tINI\tNew_1\nexit\t5", "", suite_.settings_, true, 0, true, {kRepairRun, kFirstRun, kSecondRun}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    std::filesystem::remove(suite_.Path(L"runs.txt"));
    suite_.Register(test::kCorvidKey);
    suite_.AddInstaller(suite_.setup_);
    suite_.AddInstaller(suite_.setup_ + L"\\New_1");
    suite_.WriteSettings(L"New_1");
    suite_.Script(1, c.first);
    suite_.Script(2, c.second);
    SHDeleteValueW(HKEY_LOCAL_MACHINE, test::kCorvidKey, c.missing.c_str());
    DeleteFileW(c.missing.c_str());

    std::uint32_t code = 0xBAD;
    std::uint8_t reboot = kUntouched;
    EXPECT_EQ(c.result, RunUpdater(&code, &reboot));
    EXPECT_EQ(c.code, code);
    EXPECT_EQ(c.reboot ? 0 : kUntouched, reboot);
    EXPECT_EQ(c.runs, suite_.Runs());
  }
}

}  // namespace
}  // namespace crv::instup
