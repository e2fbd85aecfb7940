#include "root/token.h"

#include <gtest/gtest.h>

#include <set>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

// Watches the tokens and SIDs that the product holds, and lets one call fail.
class Token : public testing::Test {
 protected:
  ~Token() override { EXPECT_TRUE(held_.empty()); }

  std::string failing_;
  DWORD code_ = 0;
  int successes_ = 0;    // calls of the failing function that still succeed
  PSID user_ = nullptr;  // whom the token is said to name

 private:
  bool Fails(const char* function) {
    if (failing_ != function || successes_-- > 0) return false;
    SetLastError(code_);
    return true;
  }
  BOOL Hold(BOOL success, void* const* handle) {
    if (success) held_.insert(*handle);
    return success;
  }

  std::set<void*> held_;
  test::ImportFake<decltype(OpenThreadToken)> open_thread_{
      "advapi32.dll", "OpenThreadToken", [this](auto real, HANDLE thread, DWORD access, BOOL as_self, HANDLE* token) {
        EXPECT_TRUE(access == 0xA && !as_self);
        return Hold(!Fails("thread") && real(thread, access, as_self, token), token);
      }};
  test::ImportFake<decltype(OpenProcessToken)> open_process_{
      "advapi32.dll", "OpenProcessToken", [this](auto real, HANDLE process, DWORD access, HANDLE* token) {
        EXPECT_EQ(0xAu, access);
        return Hold(!Fails("process") && real(process, access, token), token);
      }};
  test::ImportFake<decltype(DuplicateToken)> duplicate_{
      "advapi32.dll", "DuplicateToken", [this](auto real, HANDLE token, auto level, HANDLE* duplicate) {
        return Hold(!Fails("duplicate") && real(token, level, duplicate), duplicate);
      }};
  test::ImportFake<decltype(CheckTokenMembership)> check_{
      "advapi32.dll", "CheckTokenMembership", [this](auto real, HANDLE token, PSID group, BOOL* member) {
        EXPECT_TRUE(IsWellKnownSid(group, WinBuiltinAdministratorsSid));
        return !Fails("check") && real(token, group, member);
      }};
  test::ImportFake<decltype(GetTokenInformation)> information_{
      "advapi32.dll", "GetTokenInformation",
      [this](auto real, HANDLE token, auto what, void* block, DWORD size, DWORD* needed) -> BOOL {
        if (Fails(block ? "user" : "size")) return FALSE;
        if (Fails("no size")) return TRUE;
        if (Fails("no memory")) return *needed = 0xFFFFFFF0, FALSE;
        const BOOL success = real(token, what, block, size, needed);
        if (success && user_) static_cast<TOKEN_USER*>(block)->User.Sid = user_;
        return success;
      }};
  test::ImportFake<decltype(AllocateAndInitializeSid)> make_{
      "advapi32.dll", "AllocateAndInitializeSid", [this](auto real, auto... arguments) {
        return Hold(!Fails("make") && real(arguments...), std::get<10>(std::tuple(arguments...)));
      }};
  test::ImportFake<decltype(FreeSid)> free_{
      "advapi32.dll", "FreeSid", [this](auto real, PSID sid) { return held_.erase(sid), real(sid); }};
  test::ImportFake<decltype(CloseHandle)> close_{
      "kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
        return held_.erase(handle), SetLastError(0xBAD), real(handle);
      }};
};

TEST_F(Token, FailuresAreNestedInTheNameOfTheQuestion) {
  const struct {
    const char* failing;
    DWORD code;
    int successes;
    const char *admin, *service;  // the nested failure
  } cases[] = {
      {"thread", 5, 0, "error 00000005 Unable to open current thread token!",
       "error 00000005 Unable to open current thread token!"},
      {"process", 6, 0, "error 00000006 Unable to open default process token!",
       "error 00000006 Unable to open default process token!"},
      {"make", 8, 0, "error 00000008 AllocateAndInitializeSid", "error 00000008 AllocateAndInitializeSid"},
      {"make", 8, 2, nullptr, "error 00000008 AllocateAndInitializeSid"},
      {"duplicate", 1346, 0, "error 00000542 Unable to duplicate the access token!", nullptr},
      {"check", 1309, 0, "error 0000051d Unable to check token membership!", nullptr},
      {"size", 5, 0, nullptr, "error 00000005 Unable to retrieve the size of user SID!"},
      {"no size", 24, 0, nullptr, "error 00000018 Unable to retrieve the size of user SID!"},
      {"user", 122, 0, nullptr, "error 0000007a Unable to retrieve the user SID!"},
      {"no memory", ERROR_INSUFFICIENT_BUFFER, 0, nullptr, "other"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const auto expected = [](const std::string& name, const char* failure) {
      return failure ? "error ffffffff " + name + " <- " + failure : "nothing";
    };
    failing_ = c.failing;
    code_ = c.code;
    successes_ = c.successes;
    EXPECT_EQ(expected("RunningUnderAdminAccount", c.admin), test::Thrown(RunningUnderAdminAccount));
    successes_ = c.successes;
    EXPECT_EQ(expected("RunningUnderServiceAccount", c.service), test::Thrown(RunningUnderServiceAccount));
  }
}

TEST_F(Token, ServiceAccountsAreThreeOfTheNtAuthority) {
  EXPECT_FALSE(RunningUnderServiceAccount());
  for (const DWORD account : {16, 17, 18, 19, 20, 21, 32}) {
    for (const BYTE authority : {1, 5}) {
      SID user = {SID_REVISION, 1, {{0, 0, 0, 0, 0, authority}}, {account}};
      user_ = &user;
      EXPECT_EQ(authority == 5 && account >= 18 && account <= 20, RunningUnderServiceAccount())
          << int{authority} << "-" << account;
    }
  }
}

}  // namespace
}  // namespace crv::root
