#include "wsc/isv_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include "security_center/control.h"
#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/client.h"
#include "wsc/pending.h"
#include "wsc/pretended_system.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

using testing::HasSubstr;
using Answers = std::vector<std::wstring>;
using Lines = std::vector<std::string>;

constexpr wchar_t kName[] = L"Corvid Antivirus";

class Client : public testing::Test {
 protected:
  // What reached Security Center, but for the creation of the interfaces; and forgets it.
  static Answers TakeCalls() {
    Answers calls = standins::SecurityCenterCalls().Journal();
    std::erase_if(calls, [](const std::wstring& call) { return call.find(L".Create(") != std::wstring::npos; });
    standins::ClearSecurityCenter();
    return calls;
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredClass centre_{L"security_center.dll", CLSID_WscIsv};
  test::RunningServices services_;
  test::PretendedWindows windows_{10, 0, 0};
  std::vector<DWORD> sleeps_;  // ms
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto*, DWORD ms) { sleeps_.push_back(ms); }};
};

// The tour shows what requests usually send and log.
TEST_F(Client, AnswersThatAreRare) {
  standins::SecurityCenterCalls().Script(L"IWscASStatus.Register", {L"0x8000000a", L"0x8000000a", L"0x00000001"});
  register_as();
  EXPECT_EQ(std::vector<DWORD>(2, 50), sleeps_) << "before each repeat of what was pending";
  EXPECT_EQ("narrow 1 wsc: Register succeeded: 0x00000001", log_.lines().back());
  update_as(ProductState::off, SignatureStatus{2});
  EXPECT_EQ(L"IWscASStatus.UpdateStatus(1, 0) = 0x00000000", TakeCalls().back()) << "only 1 is up to date";
  isv_client<IWscFWStatus>::write_registered_name();
  standins::SecurityCenterCalls().Script(L"IWscFWStatus.UpdateStatus", {L"forever 0x80070002"});
  EXPECT_EQ("error 80070002 WSC UpdateStatus: FW", test::Thrown([] { update_fw(ProductState::on); }));
  EXPECT_EQ(3u, TakeCalls().size()) << "the update, the registration, the update once more";
}

TEST_F(Client, PendingForeverEndsAfter18000Repeats) {
  int calls = 0;
  const log::Tag tag("wsc");
  EXPECT_EQ(E_PENDING, call_while_pending(tag, [&] { return ++calls, E_PENDING; }));
  EXPECT_EQ(18001, calls) << "one call and 18,000 repeats";
  EXPECT_EQ(std::vector<DWORD>(18000, 50), sleeps_);
  EXPECT_EQ(1u + 180u, log_.lines().size());
  EXPECT_EQ("narrow 2 wsc: wsc pending: 17900", log_.lines().at(179));
  EXPECT_EQ("narrow 5 wsc: wsc still pending", log_.lines().back());
}

TEST_F(Client, ASuccessWithoutAnInterfaceIsTheSupportLibrarysError) {
  standins::SecurityCenterCalls().Script(L"IWscAVStatus.Create", Answers{L"null"});
  EXPECT_THROW(register_av(), _com_error);
}

// The record outlives a restart and is read by whoever looks.
TEST_F(Client, TheNameIsWrittenForGoodAndAFailureOnlyLogged) {
  LONG refusal = 0, refusal_of_key = 0;
  const test::ImportFake<decltype(RegCreateKeyExW)> create(
      "advapi32.dll", "RegCreateKeyExW",
      [&](auto* real, HKEY root, auto* key, DWORD reserved, auto* name, DWORD options, REGSAM access, auto... rest) {
        EXPECT_EQ(DWORD{REG_OPTION_NON_VOLATILE}, options);
        EXPECT_EQ(REGSAM{KEY_SET_VALUE}, access);
        return refusal_of_key ? refusal_of_key : real(root, key, reserved, name, options, access, rest...);
      });
  std::vector<BYTE> written;
  const test::ImportFake<decltype(RegSetValueExW)> set(
      "advapi32.dll", "RegSetValueExW", [&](auto*, HKEY, auto* name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        EXPECT_STREQ(L"IWscFWStatus", name);
        EXPECT_EQ(DWORD{REG_SZ}, type);
        written.assign(data, data + size);
        return refusal;
      });
  isv_client<IWscFWStatus>::write_registered_name();
  const auto* const name = reinterpret_cast<const BYTE*>(kName);
  EXPECT_EQ(std::vector<BYTE>(name, name + sizeof(kName)), written);
  EXPECT_EQ(Lines(), log_.lines());
  for (LONG* const failing : {&refusal, &refusal_of_key}) {
    *failing = ERROR_ACCESS_DENIED;
    isv_client<IWscFWStatus>::write_registered_name();
    EXPECT_EQ(Lines{"narrow 4 wsc: cannot write registered name"}, log_.lines());
    *failing = 0;
    log_.clear();
  }
}

TEST_F(Client, TheServiceIsMadeToRunBeforeEveryCreation) {
  update_av(ProductState::off, SignatureStatus::up_to_date);
  // For Unregister, Register and UpdateStatus.
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
  standins::ClearSecurityCenter();
  services_.Fail("open", ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_EQ("error 00000424 Unable to open the service 'wscsvc'!", test::Thrown(register_fw));
  EXPECT_EQ(Answers(), standins::SecurityCenterCalls().Journal()) << "no interface was created";
}

TEST_F(Client, DefenderIsLeftAloneWhenSecurityCenterRefuses) {
  const test::PretendedWindows windows(6, 1, 1);
  const struct {
    void (*request)();
    const wchar_t* refused;
  } cases[] = {{[] { update_av(ProductState::on, SignatureStatus::up_to_date); }, L"IWscAVStatus.UpdateStatus"},
               {unregister_av, L"IWscAVStatus.Unregister"},
               {unregister_as, L"IWscASStatus.Unregister"}};
  for (const auto& c : cases) {
    standins::SecurityCenterCalls().Script(c.refused, Answers{L"0x80004005"});
    EXPECT_THAT(test::Thrown(c.request), testing::StartsWith("error 80004005 WSC U"));
    EXPECT_THAT(services_.TakeCalls(), testing::Not(HasSubstr("WinDefend")));
  }
}

}  // namespace
}  // namespace crv::wsc
