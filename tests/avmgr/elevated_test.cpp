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

const HANDLE kElevated = reinterpret_cast<HANDLE>(0xE1E0);
constexpr wchar_t kMark[] = L"CRV_WSC_RESTARTED";

bool IsMarked() { return GetEnvironmentVariableW(kMark, nullptr, 0) != 0; }

// A token that is an administrator's or not, and a shell that pretends to start the elevated host.
class Elevated : public testing::Test {
 protected:
  // What is thrown, and in which order the action ran in this process or the system was asked.
  std::string Run() {
    CommandLine command_line;
    command_line.parse(L"\"C:\\h h\\h\u017e\" w /x:\"a b\" /AV /disable");
    steps_.clear();
    const auto action = [this] {
      EXPECT_FALSE(IsMarked()) << "what the action starts would take itself for a restarted host";
      steps_ += ", action", disable();
    };
    const std::string thrown = test::Thrown([&] { run_elevated(command_line, action); });
    EXPECT_FALSE(IsMarked());
    return thrown + steps_;
  }

  test::CapturedLog log_;
  bool administrator_ = false;
  HANDLE handed_ = kElevated;  // by the shell
  DWORD exit_code_ = 0;

 private:
  std::string steps_;

  const test::ImportFake<decltype(CheckTokenMembership)> membership_{
      "advapi32.dll", "CheckTokenMembership",
      [this](auto*, HANDLE, PSID, BOOL* member) { return *member = administrator_, TRUE; }};
  const test::ImportFake<decltype(ShellExecuteExW)> execute_{
      "shell32.dll", "ShellExecuteExW", [this](auto*, SHELLEXECUTEINFOW* given) -> BOOL {
        steps_ += IsMarked() ? ", restart" : ", unmarked restart";
        EXPECT_EQ(60u, given->cbSize);
        EXPECT_EQ(0x4140u, given->fMask);
        EXPECT_EQ(SW_SHOWNORMAL, given->nShow);
        EXPECT_STREQ(L"runas", given->lpVerb);
        EXPECT_EQ(root::GetModulePath(nullptr), given->lpFile);
        EXPECT_STREQ(L"/AV /disable \"/x:a b\" \"w\"", given->lpParameters);
        given->hProcess = handed_;
        return TRUE;
      }};
  const test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject",
                                                              [this](auto* real, HANDLE handle, DWORD limit) {
                                                                if (handle != kElevated || limit != INFINITE)
                                                                  return real(handle, limit);
                                                                return steps_ += ", wait", WAIT_OBJECT_0;
                                                              }};
  const test::ImportFake<decltype(GetExitCodeProcess)> read_{
      "kernel32.dll", "GetExitCodeProcess", [this](auto*, auto, DWORD* code) { return *code = exit_code_, TRUE; }};
  const test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto* real, HANDLE handle) {
                                                         return handle == kElevated ? steps_ += ", close", TRUE : real(handle);
                                                       }};
};

TEST_F(Elevated, AnAdministratorRunsTheActionHere) {
  administrator_ = true;
  EXPECT_EQ("error ffffffff wsc disable refused, action", Run());
  EXPECT_THAT(log_.lines(), testing::IsEmpty());
}

TEST_F(Elevated, AnybodyElseRestartsTheHostWhoseExitCodeIsTheResult) {
  EXPECT_EQ("nothing, restart, wait, close", Run());
  EXPECT_THAT(log_.lines(), testing::ElementsAre("wide 1 wsc: Restarting wsc_proxy.exe elevated."));
  exit_code_ = 0xFFFFFFFE;
  EXPECT_EQ("error fffffffe elevated wsc_proxy ended with error, restart, wait, close", Run());
  handed_ = nullptr;
  EXPECT_EQ("nothing, restart", Run());
}

TEST_F(Elevated, ARestartedHostStartsNoOther) {
  SetEnvironmentVariableW(kMark, L"1");
  EXPECT_EQ("error 000002e4 restarted wsc_proxy has no administrator rights", Run());
  EXPECT_THAT(log_.lines(), testing::IsEmpty());
  SetEnvironmentVariableW(kMark, L"1");
  administrator_ = true;
  EXPECT_EQ("error ffffffff wsc disable refused, action", Run());
}

TEST_F(Elevated, AHostThatCannotBeMarkedIsNotStarted) {
  const test::ImportFake<decltype(SetEnvironmentVariableW)> refuse(
      "kernel32.dll", "SetEnvironmentVariableW", [](auto*, auto...) { return SetLastError(ERROR_NOT_ENOUGH_MEMORY), FALSE; });
  EXPECT_EQ("error 00000008 cannot run elevated process '\"C:\\h h\\h\xC5\xBE\" /AV /disable \"/x:a b\" \"w\"'", Run());
}

}  // namespace
}  // namespace crv::wsc
