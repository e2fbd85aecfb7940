// Where the installer is, and the two runs that update the suite.
#include "instup/updater.h"

#include <gmock/gmock.h>
#include <shlobj.h>

#include "instup/installer_state.h"
#include "support/import_fake.h"
#include "support/probed_installer.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFirstRun[] = "\"SETUP\\instup.exe\" /instop:update_setup /wait";
constexpr char kSecondRun[] = "\"SETUP\\New_1\\instup.exe\" /instop:update_vps_and_program /wait";
constexpr char kRepairRun[] = "\"SETUP\\instup.exe\"";
constexpr std::uint8_t kUntouched = 0xEE;

// The installed suite, and a folder for common application data.
class Installer : public testing::Test {
 protected:
  void AddRebootMarker(bool as_folder = false) const {
    const std::wstring marker = L"CORVID Software\\Persistent Data\\Corvid\\Reboot.txt";
    as_folder ? suite_.AddFolder(marker) : suite_.AddFile(marker);
  }

  HRESULT folder_result_ = S_OK;
  crv::test::ProbedInstaller suite_;

 private:
  const crv::test::ImportFake<decltype(SHGetFolderPathW)> common_{
      "shell32.dll", "SHGetFolderPathW", [this](auto*, HWND, int folder, HANDLE, DWORD, wchar_t* path) {
        EXPECT_EQ(35, folder);
        wcscpy(path, suite_.Path(L"").substr(0, suite_.Path(L"").size() - 1).c_str());
        return folder_result_;
      }};
};

TEST_F(Installer, IsFoundThroughEveryProductKeyAlone) {
  struct Case {
    const wchar_t* key;
    const wchar_t* program_value;
    bool data;
  };
  for (const Case& c : {Case{L"SOFTWARE\\CORVID Software\\Corvid", L"ProgramFolder", true},
                        Case{L"SOFTWARE\\Vantor Software\\Corvid", L"ProgramFolder", true},
                        Case{L"SOFTWARE\\Vantor Software\\Corvid\\5.0", L"ProgramFolder", true},
                        Case{L"SOFTWARE\\Vantor Software\\Corvid\\4.0", L"Corvid4ProgramFolder", false}}) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(c.key)));
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
    State state;
    EXPECT_FALSE(state.Locate());
    test::SetText(c.key, c.program_value, suite_.Path(L"program"));
    if (c.data) test::SetText(c.key, L"DataFolder", suite_.Path(L"data"));
    test::SetText(c.key, L"SetupFolder", suite_.setup_);
    ASSERT_TRUE(state.Locate());
    EXPECT_EQ(suite_.Path(L"program"), state.program_folder());
    EXPECT_EQ(c.data ? suite_.Path(L"data") : L"", state.data_folder());
    EXPECT_EQ(suite_.setup_, state.setup_folder());
    EXPECT_EQ(suite_.setup_ + L"\\Instup.dll", state.current_library());
    EXPECT_EQ(suite_.setup_ + L"\\instup.exe", state.current_installer());
    EXPECT_EQ(suite_.setup_ + L"\\New_1\\Instup.dll", state.new_library());
    EXPECT_EQ(suite_.setup_ + L"\\New_1\\instup.exe", state.new_installer());
    EXPECT_EQ(suite_.setup_, state.setup_record().folder);
    EXPECT_EQ(suite_.settings_, state.setup_record().file);
    EXPECT_EQ(L"New_1", state.setup_record().new_directory_name);
  }
  EXPECT_THAT(suite_.Runs(), IsEmpty());
}

TEST_F(Installer, ANameOfItsOwnIsTakenAsItStands) {
  const struct {
    const wchar_t* settings;
    const wchar_t* folder;  // behind the setup folder
  } cases[] = {{L"New_2", L"\\New_2"}, {L"", L""}, {L"a\\b ", L"\\a\\b"}, {L"\\c\\", L"\\c"}};
  for (const auto& c : cases) {
    std::ofstream(suite_.settings_.c_str(), std::ios::binary) << "[Common]\nNewDirectoryName=" << ToUtf8(c.settings) << "\n";
    State state;
    ASSERT_TRUE(state.Locate());
    EXPECT_EQ(suite_.setup_ + c.folder + L"\\instup.exe", state.new_installer());
  }
  std::ofstream(suite_.settings_.c_str(), std::ios::binary) << "[Other]\nNewDirectoryName=x\n";
  State state;
  ASSERT_TRUE(state.Locate());
  EXPECT_EQ(suite_.setup_ + L"\\New\\instup.exe", state.new_installer());
}

TEST_F(Installer, RepairsAMissingSettingsFileInOneRunWithoutArguments) {
  suite_.WriteSettings(L"");
  suite_.Script(1, "write\tINI\tNew_9\nexit\t5");  // its exit code counts for nothing
  State state;
  EXPECT_TRUE(state.Locate());
  EXPECT_EQ(suite_.setup_ + L"\\New_9\\instup.exe", state.new_installer());
  EXPECT_THAT(suite_.Runs(), ElementsAre(kRepairRun));

  suite_.WriteSettings(L"");  // the second run writes nothing
  EXPECT_FALSE(state.Locate());
  EXPECT_THAT(suite_.Runs(), ElementsAre(kRepairRun, kRepairRun));
  EXPECT_EQ(suite_.setup_ + L"\\New_9\\instup.exe", state.new_installer()) << "that of the first call";

  DeleteFileW((suite_.setup_ + L"\\instup.exe").c_str());
  EXPECT_FALSE(State().Locate());
  EXPECT_EQ(2u, suite_.Runs().size());
}

TEST_F(Installer, TheRebootMarkerIsAFile) {
  bool reboot = true;
  EXPECT_TRUE(CheckRebootMarker(reboot));
  EXPECT_FALSE(reboot);
  AddRebootMarker(true);
  reboot = true;
  EXPECT_TRUE(CheckRebootMarker(reboot));
  EXPECT_FALSE(reboot) << "a folder of that name";
  std::filesystem::remove_all(suite_.Path(L"CORVID Software"));
  AddRebootMarker();
  EXPECT_TRUE(CheckRebootMarker(reboot));
  EXPECT_TRUE(reboot);
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
  reboot = false;
  EXPECT_FALSE(CheckRebootMarker(reboot));
  EXPECT_TRUE(reboot) << "looked at all the same";
  folder_result_ = E_FAIL;
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!", crv::test::Thrown([&] { CheckRebootMarker(reboot); }));
}

TEST_F(Installer, UpdatesInTwoRunsOneAfterTheOther) {
  std::uint32_t code = 0xBAD;
  std::uint8_t reboot = kUntouched;
  EXPECT_TRUE(RunUpdater(&code, &reboot));
  EXPECT_EQ(0u, code);
  EXPECT_EQ(0, reboot);
  EXPECT_THAT(suite_.Runs(), ElementsAre(kFirstRun, kSecondRun));
  AddRebootMarker();
  EXPECT_TRUE(RunUpdater(&code, &reboot));
  EXPECT_EQ(1, reboot);
  EXPECT_TRUE(RunUpdater(nullptr, nullptr));
  EXPECT_EQ(6u, suite_.Runs().size());
}

TEST_F(Installer, TheSecondRunIsThatOfTheDirectoryNamedByTheFirst) {
  suite_.AddInstaller(suite_.setup_ + L"\\New_2");
  suite_.Script(1, "write\tINI\tNew_2");
  EXPECT_TRUE(RunUpdater(nullptr, nullptr));
  EXPECT_THAT(suite_.Runs(), ElementsAre(kFirstRun, "\"SETUP\\New_2\\instup.exe\" /instop:update_vps_and_program /wait"));
}

TEST_F(Installer, EveryOutcomeOfTheRunsHasItsResult) {
  struct Case {
    const char *first, *second;  // what the runs do
    const char* before;          // the stage: "", "no installation", "no installer", "no new installer", "no settings"
    bool result;
    std::uint32_t code;
    bool reboot;  // the place is written
    std::vector<std::string> runs;
  };
  const Case cases[] = {
      {"exit\t3", "", "", true, 3, false, {kFirstRun}},
      {"exit\t0xffffffff", "", "", true, 0xFFFFFFFF, false, {kFirstRun}},
      {"exit\t256", "", "", true, 256, false, {kFirstRun}},
      {"", "exit\t7", "", true, 7, true, {kFirstRun, kSecondRun}},
      {"", "exit\t0xc0000005", "", true, 0xC0000005, true, {kFirstRun, kSecondRun}},
      {"", "", "no installation", false, 0, false, {}},
      {"", "", "no installer", false, 0, false, {}},
      {"", "", "no new installer", false, 0, false, {kFirstRun}},
      {"write\tINI\tgone", "", "", false, 0, false, {kFirstRun}},
      // The second search fails, also after its repair run: the new installer of the first one runs. The reboot check searches a third
      // time, in vain.
      {"delete\tINI", "", "", true, 0, false, {kFirstRun, kRepairRun, kSecondRun, kRepairRun}},
      {"", "", "no settings", false, 0, false, {kRepairRun}},
      {"write\tINI\tNew_1", "", "no settings", true, 0, true, {kRepairRun, kFirstRun, kSecondRun}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::wstring new_installer = suite_.setup_ + L"\\New_1\\instup.exe", installer = suite_.setup_ + L"\\instup.exe";
    std::filesystem::remove(suite_.Path(L"runs.txt"));
    suite_.Register(test::kCorvidKey);
    suite_.AddInstaller(suite_.setup_);
    suite_.AddInstaller(suite_.setup_ + L"\\New_1");
    suite_.WriteSettings(L"New_1");
    suite_.Script(1, c.first);
    suite_.Script(2, c.second);
    const std::string before = c.before;
    if (before == "no installation") test::DeleteValue(test::kCorvidKey, L"ProgramFolder");
    if (before == "no installer") std::filesystem::remove(installer);
    if (before == "no new installer") std::filesystem::remove(new_installer);
    if (before == "no settings") suite_.WriteSettings(L"");

    std::uint32_t code = 0xBAD;
    std::uint8_t reboot = kUntouched;
    EXPECT_EQ(c.result, RunUpdater(&code, &reboot));
    EXPECT_EQ(c.code, code);
    EXPECT_EQ(c.reboot ? 0 : kUntouched, reboot);
    EXPECT_EQ(c.runs, suite_.Runs());
  }
}

TEST_F(Installer, AFailingRebootCheckReachesTheCallerAfterBothRuns) {
  folder_result_ = E_FAIL;
  std::uint32_t code = 0xBAD;
  std::uint8_t reboot = kUntouched;
  EXPECT_EQ("error 00000002 Unable to retrieve a path of the known folder (35)!",
            crv::test::Thrown([&] { RunUpdater(&code, &reboot); }));
  EXPECT_EQ(0u, code);
  EXPECT_EQ(kUntouched, reboot);
  EXPECT_EQ(2u, suite_.Runs().size());
  EXPECT_TRUE(RunUpdater(&code, nullptr)) << "without a place nobody looks";
}

}  // namespace
}  // namespace crv::instup
