#include "avmgr/elevated.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include "avmgr/actions.h"
#include "root/module_path.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

HANDLE StartProgram(std::wstring command_line) {
  STARTUPINFOW startup = {sizeof(startup)};
  PROCESS_INFORMATION started = {};
  EXPECT_TRUE(CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started));
  CloseHandle(started.hThread);
  return started.hProcess;
}

// A token that is an administrator's or not, and a shell that starts a program of the test's choice in place of the host.
class Elevated : public testing::Test {
 protected:
  Elevated() { command_line_.parse(L"\"C:\\h h\\h\u017e\" w /x:\"a b\" /AV /disable"); }

  // Says what is thrown, how often the action ran in this process, and how often the host was restarted.
  std::string Run(const wchar_t* elevated, DWORD refusal = 0) {
    elevated_ = elevated;
    refusal_ = refusal;
    const std::string thrown = test::Thrown([this] {
      run_elevated(command_line_, [this] {
        ++actions_;
        disable();
      });
    });
    EXPECT_EQ(nullptr, process_) << "a handle is left open";
    return thrown + ", " + std::to_string(std::exchange(actions_, 0)) + " actions, " +
           std::to_string(std::exchange(restarts_, 0)) + " restarts";
  }

  CommandLine command_line_;
  test::CapturedLog log_;
  bool administrator_ = false;

 private:
  const wchar_t* elevated_ = nullptr;  // null: the shell hands back no process
  DWORD refusal_ = 0;                  // the shell's error; 0: it starts
  int actions_ = 0;
  int restarts_ = 0;
  HANDLE process_ = nullptr;  // handed back; null again when it was closed

  const test::ImportFake<decltype(CheckTokenMembership)> membership_{
      "advapi32.dll", "CheckTokenMembership",
      [this](auto*, HANDLE, PSID, BOOL* member) { return *member = administrator_, TRUE; }};
  const test::ImportFake<decltype(ShellExecuteExW)> execute_{
      "shell32.dll", "ShellExecuteExW", [this](auto*, SHELLEXECUTEINFOW* given) -> BOOL {
        ++restarts_;
        SHELLEXECUTEINFOW expected = {};  // every other member is zero
        expected.cbSize = 60;
        expected.fMask = 0x4140;
        expected.nShow = 1;
        expected.lpVerb = given->lpVerb;
        expected.lpFile = given->lpFile;
        expected.lpParameters = given->lpParameters;
        EXPECT_EQ(0, memcmp(&expected, given, sizeof(expected)));
        EXPECT_STREQ(L"runas", given->lpVerb);
        EXPECT_EQ(root::GetModulePath(nullptr), given->lpFile);
        EXPECT_STREQ(L"/AV /disable \"/x:a b\" \"w\"", given->lpParameters);
        if (refusal_) return SetLastError(refusal_), FALSE;
        if (elevated_) process_ = given->hProcess = StartProgram(elevated_);
        return TRUE;
      }};
  const test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject",
                                                              [this](auto* real, HANDLE handle, DWORD limit) {
                                                                EXPECT_EQ(process_, handle);
                                                                EXPECT_EQ(INFINITE, limit);
                                                                return real(handle, 60'000);
                                                              }};
  const test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto* real, HANDLE handle) {
                                                         if (handle == process_) process_ = nullptr;
                                                         return real(handle);
                                                       }};
};

TEST_F(Elevated, AnAdministratorRunsTheActionHere) {
  administrator_ = true;
  EXPECT_EQ("error ffffffff wsc disable refused, 1 actions, 0 restarts", Run(nullptr));
  EXPECT_THAT(log_.lines(), testing::IsEmpty());
}

TEST_F(Elevated, AnybodyElseRestartsTheHostWhoseExitCodeIsTheResult) {
  EXPECT_EQ("nothing, 0 actions, 1 restarts", Run(L"cmd /c exit 0"));
  EXPECT_THAT(log_.lines(), testing::ElementsAre("wide 1 wsc: Restarting wsc_proxy.exe elevated."));
  EXPECT_EQ("error 00000003 elevated wsc_proxy ended with error, 0 actions, 1 restarts", Run(L"cmd /c exit 3"));
  EXPECT_EQ("error ffffffff elevated wsc_proxy ended with error, 0 actions, 1 restarts", Run(L"cmd /c exit -1"));
  EXPECT_EQ("nothing, 0 actions, 1 restarts", Run(nullptr));
  EXPECT_EQ(
      "error 000004c7 cannot run elevated process '\"C:\\h h\\h\xC5\xBE\" /AV /disable \"/x:a b\" \"w\"', 0 actions, 1 restarts",
      Run(nullptr, ERROR_CANCELLED));
}

TEST_F(Elevated, WhatCannotBeAskedIsAnError) {
  {
    const test::ImportFake<decltype(GetExitCodeProcess)> refuse("kernel32.dll", "GetExitCodeProcess",
                                                                [](auto*, auto...) { return SetLastError(6), FALSE; });
    EXPECT_EQ("error 00000006 GetExitCodeProcess, 0 actions, 1 restarts", Run(L"cmd /c exit 0"));
  }
  const test::ImportFake<decltype(DuplicateToken)> refuse("advapi32.dll", "DuplicateToken",
                                                          [](auto*, auto...) { return SetLastError(5), FALSE; });
  EXPECT_EQ(
      "error ffffffff RunningUnderAdminAccount <- error 00000005 Unable to duplicate the access token!, 0 actions, 0 restarts",
      Run(nullptr));
}

}  // namespace
}  // namespace crv::wsc
