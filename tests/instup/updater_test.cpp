// The two runs that update the suite and the processes that they start. How their codes are told shows in the test of the update
// action.
#include "instup/updater.h"

#include <shlobj.h>

#include <set>

#include "support/import_fake.h"
#include "support/probed_installer.h"

namespace crv::instup {
namespace {

constexpr char kFirstRun[] = "\"SETUP\\instup.exe\" /instop:update_setup /wait";
constexpr char kSecondRun[] = "\"SETUP\\New_1\\instup.exe\" /instop:update_vps_and_program /wait";
constexpr char kRepairRun[] = "\"SETUP\\instup.exe\"";
constexpr std::uint8_t kUntouched = 0xEE;

using crv::test::ImportFake;

TEST(Updater, EveryOutcomeOfTheRunsHasItsResult) {
  const crv::test::ProbedInstaller suite;
  const ImportFake<decltype(SHGetFolderPathW)> common_data(
      "shell32.dll", "SHGetFolderPathW", [&](auto, HWND, int, HANDLE, DWORD, wchar_t* path) {
        return wcscpy(path, std::filesystem::path(suite.Path(L"x")).parent_path().c_str()), S_OK;
      });
  std::set<HANDLE> open_handles;
  const ImportFake<decltype(CreateProcessW)> create("kernel32.dll", "CreateProcessW", [&](auto real, auto... arguments) {
    const BOOL result = real(arguments...);
    const PROCESS_INFORMATION& process = *std::get<9>(std::tuple(arguments...));
    if (result) open_handles.insert({process.hProcess, process.hThread});
    return result;
  });
  const ImportFake<decltype(CloseHandle)> close(
      "kernel32.dll", "CloseHandle", [&](auto real, HANDLE handle) { return open_handles.erase(handle), real(handle); });
  const std::wstring installer = suite.setup_ + L"\\instup.exe";
  const struct {
    const char* first;     // what the first run does
    std::wstring missing;  // a file, at the start
    bool result;
    std::uint32_t code;
    std::uint8_t reboot;
    std::vector<std::string> runs;
  } cases[] = {
      {"", L"", true, 0, 0, {kFirstRun, kSecondRun}},
      {"exit\t0xffffff00", L"", true, 0xFFFFFF00, kUntouched, {kFirstRun}},
      {"", installer, false, 0, kUntouched, {}},
      {"write\tINI\tgone", L"", false, 0, kUntouched, {kFirstRun}},  // the directory named by the first run counts
      // The second search fails, also after its repair run: the new installer of the first one runs. The reboot check searches a
      // third time, in vain.
      {"delete\tINI", L"", true, 0, kUntouched, {kFirstRun, kRepairRun, kSecondRun, kRepairRun}},
      {"", suite.settings_, false, 0, kUntouched, {kRepairRun}},
      {"write\tINI\tNew_1\nexit\t5", suite.settings_, true, 0, 0, {kRepairRun, kFirstRun, kSecondRun}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    std::filesystem::remove(suite.Path(L"runs.txt"));
    suite.AddInstaller(suite.setup_);
    suite.WriteSettings(L"New_1");
    suite.Script(1, c.first);
    DeleteFileW(c.missing.c_str());
    std::uint32_t code = 0xBAD;
    std::uint8_t reboot = kUntouched;
    EXPECT_EQ(c.result, RunUpdater(&code, &reboot));
    EXPECT_EQ(c.code, code);
    EXPECT_EQ(c.reboot, reboot);
    EXPECT_EQ(c.runs, suite.Runs());
    EXPECT_TRUE(open_handles.empty());
  }
  suite.AddFile(L"CORVID Software\\Persistent Data\\Corvid\\Reboot.txt");
  suite.Script(1, "");
  std::uint8_t reboot = kUntouched;
  EXPECT_TRUE(RunUpdater(nullptr, &reboot));
  EXPECT_EQ(1, reboot);
}

}  // namespace
}  // namespace crv::instup
