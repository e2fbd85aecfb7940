#include "avmgr/elevated.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include <stdexcept>

#include "avmgr/actions.h"
#include "root/module_path.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRestarting[] = "wide 1 wsc: Restarting wsc_proxy.exe elevated.";

HANDLE StartProgram(const wchar_t* command_line) {
  std::wstring text = command_line;
  STARTUPINFOW startup = {sizeof(startup)};
  PROCESS_INFORMATION started = {};
  EXPECT_TRUE(CreateProcessW(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) << GetLastError();
  CloseHandle(started.hThread);
  return started.hProcess;
}

// A token that is an administrator's or not, and a shell that starts a program of the test's choice in place of the host.
class Elevated : public testing::Test {
 protected:
  Elevated() { command_line_.parse(L"\"C:\\h h\\host.exe\" w /x:\"a b\" /AV /disable"); }

  std::string Run() {
    return test::Thrown([this] { run_elevated(command_line_, [this] { ++actions_; }); });
  }

  CommandLine command_line_;
  test::CapturedLog log_;
  bool administrator_ = false;
  const wchar_t* elevated_ = nullptr;  // null: the shell hands back no process
  DWORD refusal_ = 0;                  // the shell's error; 0: it starts
  int actions_ = 0;                    // run in this process
  int restarts_ = 0;
  HANDLE process_ = nullptr;           // handed back; null again when it was closed

 private:
  const test::ImportFake<decltype(CheckTokenMembership)> membership_{
      "advapi32.dll", "CheckTokenMembership", [this](auto*, HANDLE, PSID, BOOL* member) { return *member = administrator_, TRUE; }};
  const test::ImportFake<decltype(ShellExecuteExW)> execute_{"shell32.dll", "ShellExecuteExW", [this](auto*, SHELLEXECUTEINFOW* given) -> BOOL {
    ++restarts_;
    SHELLEXECUTEINFOW rest = *given;
    EXPECT_EQ(60u, rest.cbSize);
    EXPECT_EQ(0x4140u, rest.fMask);
    EXPECT_STREQ(L"runas", rest.lpVerb);
    EXPECT_EQ(root::GetModulePath(nullptr), rest.lpFile);
    EXPECT_STREQ(L"/AV /disable \"/x:a b\" \"w\"", rest.lpParameters);
    EXPECT_EQ(1, rest.nShow);
    rest.cbSize = rest.fMask = rest.nShow = 0;
    rest.lpVerb = rest.lpFile = rest.lpParameters = nullptr;
    const SHELLEXECUTEINFOW nothing = {};
    EXPECT_EQ(0, memcmp(&nothing, &rest, sizeof(rest))) << "every other member is zero";
    if (refusal_) return SetLastError(refusal_), FALSE;
    if (elevated_) process_ = given->hProcess = StartProgram(elevated_);
    return TRUE;
  }};
  const test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject", [this](auto* real, HANDLE handle, DWORD limit) {
    EXPECT_EQ(process_, handle);
    EXPECT_EQ(INFINITE, limit);
    return real(handle, 60'000);
  }};
  const test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto* real, HANDLE handle) {
    if (handle == process_) process_ = nullptr;
    SetLastError(0xBAD);
    return real(handle);
  }};
};

TEST_F(Elevated, AnAdministratorRunsTheActionHere) {
  administrator_ = true;
  EXPECT_EQ("nothing", Run());
  EXPECT_EQ(1, actions_);
  EXPECT_EQ("error ffffffff wsc disable refused", test::Thrown([this] { run_elevated(command_line_, disable); }));
  EXPECT_EQ("other", test::Thrown([this] { run_elevated(command_line_, [] { throw std::runtime_error("x"); }); }));
  EXPECT_EQ(0, restarts_);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Elevated, TheElevatedHostsExitCodeIsTheResult) {
  const struct {
    const wchar_t* program;
    const char* thrown;
  } cases[] = {{L"cmd /c exit 0", "nothing"},
               {L"cmd /c exit 3", "error 00000003 elevated wsc_proxy ended with error"},
               {L"cmd /c exit -1", "error ffffffff elevated wsc_proxy ended with error"},
               {nullptr, "nothing"}};
  for (const auto& c : cases) {
    log_.clear();
    elevated_ = c.program;
    EXPECT_EQ(c.thrown, Run());
    EXPECT_EQ(nullptr, process_) << "its handle is left open";
    EXPECT_THAT(log_.lines(), ElementsAre(kRestarting));
  }
  EXPECT_EQ(4, restarts_);
  EXPECT_EQ(0, actions_);
}

TEST_F(Elevated, ARefusalCarriesTheWholeCommandLine) {
  command_line_.parse(L"host\u017e /disable w /x:\"a b\" /AV");
  for (const DWORD refusal : {ERROR_CANCELLED, ERROR_ACCESS_DENIED}) {
    refusal_ = refusal;
    EXPECT_EQ("error " + std::string(refusal == ERROR_CANCELLED ? "000004c7" : "00000005") +
                  " cannot run elevated process '\"host\xC5\xBE\" /AV /disable \"/x:a b\" \"w\"'",
              Run());
  }
  EXPECT_EQ(0, actions_);
}

TEST_F(Elevated, AnExitCodeThatCannotBeReadIsAnError) {
  elevated_ = L"cmd /c exit 0";
  const test::ImportFake<decltype(GetExitCodeProcess)> read("kernel32.dll", "GetExitCodeProcess",
                                                            [](auto*, auto...) { return SetLastError(6), FALSE; });
  EXPECT_EQ("error 00000006 GetExitCodeProcess", Run());
  EXPECT_EQ(nullptr, process_);
}

TEST_F(Elevated, ATokenThatCannotBeAskedRunsNothing) {
  const test::ImportFake<decltype(DuplicateToken)> refuse("advapi32.dll", "DuplicateToken", [](auto*, auto...) { return SetLastError(5), FALSE; });
  EXPECT_EQ("error ffffffff RunningUnderAdminAccount <- error 00000005 Unable to duplicate the access token!", Run());
  EXPECT_EQ(0, actions_ + restarts_);
}

}  // namespace
}  // namespace crv::wsc
