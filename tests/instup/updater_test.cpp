// The two runs that update the suite and the processes that they start. How their codes are told shows in the test of the update
// action.
#include "instup/updater.h"

#include <shlobj.h>

#include <set>

#include "instup/installer_state.h"
#include "root/scoped_handle.h"
#include "support/import_fake.h"
#include "support/probed_installer.h"
#include "support/thrown.h"

namespace crv::instup {
namespace {

constexpr char kFirstRun[] = "\"SETUP\\instup.exe\" /instop:update_setup /wait";
constexpr char kSecondRun[] = "\"SETUP\\New_1\\instup.exe\" /instop:update_vps_and_program /wait";
constexpr char kRepairRun[] = "\"SETUP\\instup.exe\"";
constexpr std::uint8_t kUntouched = 0xEE;

using crv::test::ImportFake;

// A registered suite, and every process that the product starts.
class Updater : public testing::Test, protected crv::test::ProbedInstaller {
 protected:
  ~Updater() override { EXPECT_TRUE(open_handles_.empty()); }

  void Begin(const char* first_run, const std::wstring& new_directory) {
    std::filesystem::remove(Path(L"runs.txt"));
    AddInstaller(setup_);
    WriteSettings(new_directory);
    Script(1, first_run);
  }

  PROCESS_INFORMATION last_ = {};
  DWORD allowed_ = 0;  // the process that may bring its window to the front

 private:
  std::set<HANDLE> open_handles_;
  const ImportFake<decltype(SHGetFolderPathW)> common_data_{
      "shell32.dll", "SHGetFolderPathW", [this](auto, HWND, int, HANDLE, DWORD, wchar_t* path) {
        return wcscpy(path, std::filesystem::path(Path(L"x")).parent_path().c_str()), S_OK;
      }};
  const ImportFake<decltype(CreateProcessW)> create_{
      "kernel32.dll", "CreateProcessW",
      [this](auto real, auto application, auto line, auto* process, auto* thread, BOOL inherit, DWORD flags, void* environment,
             auto folder, STARTUPINFOW* startup, PROCESS_INFORMATION* started) {
        EXPECT_TRUE(!application && !process && !thread && !inherit && flags == 0x24 && !environment && !folder);
        EXPECT_TRUE(startup->cb == 68 && startup->dwFlags == 0 && !startup->lpReserved && !startup->lpTitle);
        const BOOL result = real(application, line, process, thread, inherit, flags, environment, folder, startup, started);
        last_ = *started;
        if (result) open_handles_.insert({last_.hProcess, last_.hThread});
        return result;
      }};
  const ImportFake<decltype(AllowSetForegroundWindow)> foreground_{
      "user32.dll", "AllowSetForegroundWindow", [this](auto, DWORD process) { return allowed_ = process, TRUE; }};
  const ImportFake<decltype(CloseHandle)> close_{
      "kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) { return open_handles_.erase(handle), real(handle); }};
};

TEST_F(Updater, EveryOutcomeOfTheRunsHasItsResult) {
  const struct {
    const char* first;     // what the first run does
    std::wstring missing;  // a file, at the start
    bool result;
    std::uint32_t code;
    std::uint8_t reboot;
    std::vector<std::string> runs;
    std::wstring new_directory = L"New_1";
  } cases[] = {
      {"", L"", true, 0, 0, {kFirstRun, kSecondRun}},
      {"exit\t0xffffff00", L"", true, 0xFFFFFF00, kUntouched, {kFirstRun}},
      {"", setup_ + L"\\instup.exe", false, 0, kUntouched, {}},
      {"write\tINI\tgone", L"", false, 0, kUntouched, {kFirstRun}},  // the directory named by the first run counts
      // The second search fails, also after its repair run: the new installer of the first one runs. The reboot check searches a
      // third time, in vain.
      {"delete\tINI", L"", true, 0, kUntouched, {kFirstRun, kRepairRun, kSecondRun, kRepairRun}},
      {"", settings_, false, 0, kUntouched, {kRepairRun}},
      {"write\tINI\tNew_1\nexit\t5", settings_, true, 0, 0, {kRepairRun, kFirstRun, kSecondRun}},
      // A name that leads out of the setup folder is refused, in the second search as any other failure of it.
      {"", L"", false, 0, kUntouched, {}, L"New_1\\..\\..\\outside"},
      {"", L"", false, 0, kUntouched, {}, L"..\\the setup 2"},
      {"", L"", true, 0, 0, {kFirstRun, "\"SETUP\\New_1\\.\\instup.exe\" /instop:update_vps_and_program /wait"}, L"New_1\\."},
      {"write\tINI\t..\\outside", L"", true, 0, kUntouched, {kFirstRun, kSecondRun}},
  };
  AddInstaller(Path(L"outside"));
  AddInstaller(Path(L"the setup 2"));
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    Begin(c.first, c.new_directory);
    DeleteFileW(c.missing.c_str());
    std::uint32_t code = 0xBAD;
    std::uint8_t reboot = kUntouched;
    EXPECT_EQ(c.result, RunUpdater(&code, &reboot));
    EXPECT_EQ(c.code, code);
    EXPECT_EQ(c.reboot, reboot);
    EXPECT_EQ(c.runs, Runs());
  }
}

TEST_F(Updater, OnlyAFileMarksTheReboot) {
  const wchar_t* const kMarker = L"CORVID Software\\Persistent Data\\Corvid\\Reboot.txt";
  for (const bool file : {false, true}) {
    std::filesystem::remove(Path(kMarker));
    file ? AddFile(kMarker) : AddFolder(kMarker);
    Begin("", L"New_1");
    std::uint8_t reboot = kUntouched;
    EXPECT_TRUE(RunUpdater(nullptr, &reboot));
    EXPECT_EQ(file, reboot);
  }
}

TEST_F(Updater, AnUnregisteredSuiteIsNotLookedForInTheCurrentFolder) {
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(setup_.c_str());
  WriteSettings(L"");                                        // its installer would be run for a repair
  for (const wchar_t* const data_folder : {L"", L"data"}) {  // as a broken uninstallation leaves it
    test::SetText(test::kCorvidKey, L"DataFolder", data_folder);
    EXPECT_FALSE(RunUpdater(nullptr, nullptr));
    bool reboot = false;
    EXPECT_FALSE(CheckRebootMarker(reboot));
  }
  SetCurrentDirectoryW(before);
  EXPECT_TRUE(Runs().empty());
}

TEST_F(Updater, AnInstallerRunsAndIsWaitedForOrEndsWithItsHostBeforeItRuns) {
  std::string failing;
  const auto fails = [&](const char* call) { return failing.find(call) != std::string::npos && (SetLastError(5), true); };
  HANDLE job = nullptr;
  std::set<DWORD> limits;
  root::ScopedKernelHandle started;
  const ImportFake<decltype(SetInformationJobObject)> limit(
      "kernel32.dll", "SetInformationJobObject", [&](auto real, HANDLE of, auto what, void* data, DWORD size) {
        const DWORD flags = static_cast<JOBOBJECT_EXTENDED_LIMIT_INFORMATION*>(data)->BasicLimitInformation.LimitFlags;
        limits.insert(flags);
        return !(flags & JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE) && fails("lift") ? FALSE : real(of, what, data, size);
      });
  const ImportFake<decltype(AssignProcessToJobObject)> assign(
      "kernel32.dll", "AssignProcessToJobObject",
      [&](auto real, HANDLE to, HANDLE process) { return job = to, fails("assign") ? FALSE : real(to, process); });
  const ImportFake<decltype(ResumeThread)> resume("kernel32.dll", "ResumeThread", [&](auto real, HANDLE thread) {
    EXPECT_EQ(last_.dwProcessId, allowed_);
    started.reset(OpenProcess(SYNCHRONIZE, FALSE, last_.dwProcessId));
    if (fails("host")) CloseHandle(job);  // as its end does
    return fails("resume") ? DWORD(-1) : real(thread);
  });
  const ImportFake<decltype(WaitForSingleObject)> wait("kernel32.dll", "WaitForSingleObject",
                                                       [&](auto real, HANDLE handle, DWORD ms) {
                                                         EXPECT_EQ(INFINITE, ms);
                                                         const DWORD result = real(handle, ms);
                                                         return fails("wait") ? WAIT_FAILED : result;
                                                       });
  const ImportFake<decltype(GetExitCodeProcess)> code("kernel32.dll", "GetExitCodeProcess", [&](auto real, auto... arguments) {
    return fails("code") ? FALSE : real(arguments...);
  });
  const struct {
    const char* failing;
    bool result;
    std::size_t runs;
    const char* thrown = "nothing";
  } cases[] = {
      {"", true, 2},
      {"assign", true, 2},  // a system before Windows 8, in a host that is in a job
      {"lift", true, 2},
      {"host", true, 0},
      {"assign resume", false, 0},
      {"wait", false, 1, "error 00000005 WaitForSingleObject"},
      {"code", false, 1, "error 00000005 GetExitCodeProcess"},
  };
  for (const auto& c : cases) {
    failing = c.failing;
    Begin("", L"New_1");
    bool result = false;
    EXPECT_EQ(c.thrown, crv::test::Thrown([&] { result = RunUpdater(nullptr, nullptr); }));
    EXPECT_EQ(c.result, result) << failing;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObjectEx(started.get(), 10'000, FALSE)) << failing;
    EXPECT_EQ(c.runs, Runs().size()) << failing;
  }
  EXPECT_EQ((std::set<DWORD>{JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK,
                             JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK | JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE}),
            limits);
}

}  // namespace
}  // namespace crv::instup
