#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avmgr/actions.h"
#include "control/firewall_control.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kGot[] = L"crvGetFirewall(0) = 0x00000000";
constexpr wchar_t kFreed[] = L"crvFreeFirewall(0) = 0x00000000";

// crvData.dll beside the test program, or a variant of it; it has to be unloaded at the end of each run.
class FirewallTest : public testing::Test {
 protected:
  std::string Start() {
    standins::FirewallCalls();
    log_.clear();
    const std::string thrown = test::Thrown(start_firewall);
    EXPECT_THAT(log_.lines(), ElementsAre("wide 1 wsc: Starting FW."));
    EXPECT_EQ(nullptr, GetModuleHandleW(variant_)) << "the library is still loaded";
    return thrown;
  }

  const wchar_t* variant_ = L"crvData.dll";
  test::RedirectedHive hive_;
  test::CapturedLog log_;

 private:
  const test::ImportFake<decltype(LoadLibraryW)> load_{"kernel32.dll", "LoadLibraryW", [this](auto* real, const wchar_t* name) {
                                                         EXPECT_EQ(std::wstring(L"crvData.dll"), name);
                                                         return real(variant_);
                                                       }};
};

TEST_F(FirewallTest, IsStartedAndGivenBack) {
  EXPECT_EQ("nothing", Start());
  EXPECT_TRUE(standins::FirewallIsOn());
  EXPECT_THAT(standins::FirewallCalls().Journal(), ElementsAre(kGot, L"Firewall.Start(0) = 0x00000000", kFreed));
}

TEST_F(FirewallTest, EachFailingCallHasItsCodeAndWhatWasGotIsGivenBack) {
  standins::FirewallCalls().Script(L"crvGetFirewall", {L"0x80000005"});
  EXPECT_EQ("error 80000005 cannot get firewall", Start());
  EXPECT_THAT(standins::FirewallCalls().Journal(), ElementsAre(L"crvGetFirewall(0) = 0x80000005"));
  standins::ClearFirewall();
  standins::FirewallCalls().Script(L"crvGetFirewall", {L"null"});
  EXPECT_EQ("error ffffffff cannot get firewall", Start());
  EXPECT_THAT(standins::FirewallCalls().Journal(), ElementsAre(kGot, kFreed));
  standins::ClearFirewall();
  standins::FirewallCalls().Script(L"Firewall.Start", {L"0x1f"});
  EXPECT_EQ("error 0000001f start firewall error", Start());
  EXPECT_THAT(standins::FirewallCalls().Journal(), ElementsAre(kGot, L"Firewall.Start(0) = 0x0000001f", kFreed));
  EXPECT_FALSE(standins::FirewallIsOn());
}

TEST_F(FirewallTest, AMissingLibraryOrFunctionIsReportedAndNothingCalled) {
  variant_ = L"crvData_without_crvGetFirewall.dll";
  EXPECT_EQ("error 0000007f GetProcAddress (crvGetFirewall)", Start());
  variant_ = L"crvData_without_crvFreeFirewall.dll";
  EXPECT_EQ("error 0000007f GetProcAddress (crvFreeFirewall)", Start());
  variant_ = L"crvData_nowhere.dll";
  EXPECT_EQ("error ffffffff cannot load crvData.dll", Start());
  EXPECT_THAT(standins::FirewallCalls().Journal(), IsEmpty());
}

}  // namespace
}  // namespace crv::wsc
