#include "root/token.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <set>
#include <string>
#include <utility>

#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

// Watches the tokens and SIDs that the product holds, and lets one call fail.
class Token : public testing::Test {
 protected:
  ~Token() override { EXPECT_TRUE(held_.empty()); }

  std::string failing_;
  PSID user_ = nullptr;       // whom the token is said to name
  HANDLE threads_ = nullptr;  // the token of a thread that impersonates
  HANDLE asked_ = nullptr;    // whose membership was asked for
  BOOL member_ = TRUE;
  static constexpr DWORD kRights = TOKEN_DUPLICATE | TOKEN_QUERY;

 private:
  bool Fails(const char* function) { return failing_ == function && (SetLastError(5), true); }
  BOOL Hold(BOOL success, void* const* handle) {
    if (success) held_.insert(*handle);
    return success;
  }

  std::set<void*> held_;
  test::ImportFake<decltype(OpenThreadToken)> open_thread_{
      "advapi32.dll", "OpenThreadToken", [this](auto real, HANDLE thread, DWORD access, BOOL as_self, HANDLE* token) {
        EXPECT_TRUE(access == kRights && !as_self);
        if (Fails("thread")) return FALSE;
        return threads_ ? (*token = threads_, TRUE) : real(thread, access, as_self, token);
      }};
  test::ImportFake<decltype(OpenProcessToken)> open_process_{
      "advapi32.dll", "OpenProcessToken", [this](auto real, HANDLE process, DWORD access, HANDLE* token) {
        EXPECT_TRUE(access == kRights && !threads_);
        return Hold(!Fails("process") && real(process, access, token), token);
      }};
  test::ImportFake<decltype(DuplicateToken)> duplicate_{"advapi32.dll", "DuplicateToken",
                                                        [this](auto real, HANDLE token, auto level, HANDLE* duplicate) {
                                                          EXPECT_EQ(SecurityIdentification, level);
                                                          asked_ = token;
                                                          return Hold(real(token, level, duplicate), duplicate);
                                                        }};
  test::ImportFake<decltype(GetTokenInformation)> information_{
      "advapi32.dll", "GetTokenInformation",
      [this](auto real, HANDLE token, auto what, void* block, DWORD size, DWORD* needed) -> BOOL {
        if (block && Fails("user")) return FALSE;
        const BOOL success = real(token, what, block, size, needed);
        if (success && user_) static_cast<TOKEN_USER*>(block)->User.Sid = user_;
        return success;
      }};
  test::ImportFake<decltype(CheckTokenMembership)> membership_{"advapi32.dll", "CheckTokenMembership",
                                                               [this](auto, HANDLE, PSID group, BOOL* member) {
                                                                 wchar_t* text = nullptr;
                                                                 EXPECT_TRUE(ConvertSidToStringSidW(group, &text));
                                                                 EXPECT_STREQ(L"S-1-5-32-544", text);
                                                                 LocalFree(text);
                                                                 return *member = member_, TRUE;
                                                               }};
  test::ImportFake<decltype(AllocateAndInitializeSid)> make_{
      "advapi32.dll", "AllocateAndInitializeSid", [this](auto real, auto... arguments) {
        return Hold(!Fails("make") && real(arguments...), std::get<10>(std::tuple(arguments...)));
      }};
  test::ImportFake<decltype(FreeSid)> free_{"advapi32.dll", "FreeSid",
                                            [this](auto real, PSID sid) { return held_.erase(sid), real(sid); }};
  test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
                                                   return held_.erase(handle), SetLastError(0xBAD), real(handle);
                                                 }};
};

// Those of the question for an administrator are the sweep's.
TEST_F(Token, FailuresAreNestedInTheNameOfTheQuestion) {
  const std::pair<const char*, const char*> cases[] = {
      {"thread", "Unable to open current thread token!"},
      {"process", "Unable to open default process token!"},
      {"make", "AllocateAndInitializeSid"},
      {"user", "Unable to retrieve the user SID!"},
  };
  for (const auto& [failing, failure] : cases) {
    failing_ = failing;
    EXPECT_EQ("error ffffffff RunningUnderServiceAccount <- error 00000005 " + std::string(failure),
              test::Thrown(RunningUnderServiceAccount));
  }
}

TEST_F(Token, TheTokenOfAThreadThatImpersonatesComesBeforeTheProcesss) {
  EXPECT_TRUE(RunningUnderAdminAccount());
  member_ = FALSE;
  EXPECT_FALSE(RunningUnderAdminAccount());
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), kRights, &threads_));
  EXPECT_FALSE(RunningUnderAdminAccount());
  EXPECT_EQ(threads_, asked_);
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
