#include "root/token.h"

#include <gtest/gtest.h>

#include <set>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

// Counts the tokens and SIDs that the product holds, notes where it looks for the caller's token, and lets one call fail.
class Token : public testing::Test {
 protected:
  ~Token() override { EXPECT_TRUE(held_.empty()); }

  std::string failing_;
  DWORD code_ = 0;
  int successes_ = 0;        // calls of the failing function that still succeed
  PSID user_ = nullptr;      // whom the token is said to name
  std::string asked_;

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
        asked_ += "thread;";
        EXPECT_EQ(GetCurrentThread(), thread);
        EXPECT_EQ(0xAu, access);
        EXPECT_FALSE(as_self);
        return Hold(!Fails("thread") && real(thread, access, as_self, token), token);
      }};
  test::ImportFake<decltype(OpenProcessToken)> open_process_{
      "advapi32.dll", "OpenProcessToken", [this](auto real, HANDLE process, DWORD access, HANDLE* token) {
        asked_ += "process;";
        EXPECT_EQ(GetCurrentProcess(), process);
        EXPECT_EQ(0xAu, access);
        return Hold(!Fails("process") && real(process, access, token), token);
      }};
  test::ImportFake<decltype(DuplicateToken)> duplicate_{
      "advapi32.dll", "DuplicateToken", [this](auto real, HANDLE token, auto level, HANDLE* duplicate) {
        EXPECT_EQ(SecurityIdentification, level);
        return Hold(!Fails("duplicate") && real(token, level, duplicate), duplicate);
      }};
  test::ImportFake<decltype(CheckTokenMembership)> check_{
      "advapi32.dll", "CheckTokenMembership", [this](auto real, auto... arguments) { return !Fails("check") && real(arguments...); }};
  test::ImportFake<decltype(GetTokenInformation)> information_{
      "advapi32.dll", "GetTokenInformation", [this](auto real, HANDLE token, auto what, void* block, DWORD size, DWORD* needed) -> BOOL {
        EXPECT_EQ(TokenUser, what);
        if (Fails(block ? "user" : "size")) return FALSE;
        if (Fails("no size")) return TRUE;
        if (Fails("no memory")) return *needed = 0xFFFFFFF0, FALSE;
        const BOOL success = real(token, what, block, size, needed);
        if (success && user_) static_cast<TOKEN_USER*>(block)->User.Sid = user_;
        return success;
      }};
  test::ImportFake<decltype(AllocateAndInitializeSid)> make_{
      "advapi32.dll", "AllocateAndInitializeSid", [this](auto real, auto... arguments) {
        PSID* const sid = std::get<10>(std::tuple(arguments...));
        return Hold(!Fails("make") && real(arguments...), sid);
      }};
  test::ImportFake<decltype(FreeSid)> free_{"advapi32.dll", "FreeSid", [this](auto real, PSID sid) { return held_.erase(sid), real(sid); }};
  test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
                                                   held_.erase(handle);
                                                   SetLastError(0xBAD);
                                                   return real(handle);
                                                 }};
};

TEST_F(Token, FailuresAreNestedInTheNameOfTheQuestion) {
  const struct {
    const char* failing;
    DWORD code;
    int successes;
    const char *admin, *service;  // the nested failure
  } cases[] = {
      {"thread", 5, 0, "00000005 Unable to open current thread token!", "00000005 Unable to open current thread token!"},
      {"process", 6, 0, "00000006 Unable to open default process token!", "00000006 Unable to open default process token!"},
      {"make", 8, 0, "00000008 AllocateAndInitializeSid", "00000008 AllocateAndInitializeSid"},
      {"make", 8, 2, nullptr, "00000008 AllocateAndInitializeSid"},
      {"duplicate", 1346, 0, "00000542 Unable to duplicate the access token!", nullptr},
      {"check", 1309, 0, "0000051d Unable to check token membership!", nullptr},
      {"size", 5, 0, nullptr, "00000005 Unable to retrieve the size of user SID!"},
      {"no size", 24, 0, nullptr, "00000018 Unable to retrieve the size of user SID!"},
      {"user", 122, 0, nullptr, "0000007a Unable to retrieve the user SID!"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.failing << c.successes);
    const auto expected = [](const std::string& name, const char* failure) {
      return failure ? "error ffffffff " + name + " <- error " + failure : "nothing";
    };
    failing_ = c.failing;
    code_ = c.code;
    successes_ = c.successes;
    EXPECT_EQ(expected("RunningUnderAdminAccount", c.admin), test::Thrown(RunningUnderAdminAccount));
    successes_ = c.successes;
    EXPECT_EQ(expected("RunningUnderServiceAccount", c.service), test::Thrown(RunningUnderServiceAccount));
  }
  failing_ = "no memory";
  code_ = ERROR_INSUFFICIENT_BUFFER;
  EXPECT_EQ("error ffffffff RunningUnderServiceAccount <- other", test::Thrown(RunningUnderServiceAccount));
  EXPECT_EQ("error 00000006 Unable to duplicate the access token!", test::Thrown([] { IsAdministrator(nullptr); }));
}

TEST_F(Token, ServiceAccountsAreThreeOfTheNtAuthority) {
  const struct { BYTE authority; DWORD account; bool expected; } cases[] = {
      {5, 18, true}, {5, 19, true}, {5, 20, true}, {5, 17, false}, {5, 21, false}, {5, 32, false}, {1, 18, false}};
  for (const auto& c : cases) {
    SID user = {SID_REVISION, 1, {{0, 0, 0, 0, 0, c.authority}}, {c.account}};
    user_ = &user;
    EXPECT_EQ(c.expected, RunningUnderServiceAccount()) << int{c.authority} << "-" << c.account;
  }
  user_ = nullptr;
  EXPECT_FALSE(RunningUnderServiceAccount());
}

// The thread impersonates the process's own user without his place among the administrators.
TEST_F(Token, ImpersonatingThreadIsAskedInsteadOfTheProcess) {
  EXPECT_TRUE(RunningUnderAdminAccount());
  EXPECT_EQ("thread;process;", std::exchange(asked_, ""));

  const ScopedSid administrators({SECURITY_NT_AUTHORITY}, 2, 32, 544);
  SID_AND_ATTRIBUTES denied = {administrators.get(), 0};
  ScopedKernelHandle process, restricted, impersonation;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS & 0xA, process.put()));
  ASSERT_TRUE(CreateRestrictedToken(process.get(), 0, 1, &denied, 0, nullptr, 0, nullptr, restricted.put()));
  ASSERT_TRUE(DuplicateTokenEx(restricted.get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenImpersonation, impersonation.put()));
  ASSERT_TRUE(SetThreadToken(nullptr, impersonation.get()));
  asked_ = "";
  EXPECT_FALSE(RunningUnderAdminAccount());
  EXPECT_FALSE(RunningUnderServiceAccount());
  EXPECT_EQ("thread;thread;", asked_);
  RevertToSelf();
  EXPECT_TRUE(RunningUnderAdminAccount());
}

}  // namespace
}  // namespace crv::root
