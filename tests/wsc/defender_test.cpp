#include "wsc/defender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include "root/registry.h"
#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "wsc/pretended_system.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;

constexpr wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Microsoft\\Windows Defender";
constexpr wchar_t kOptOutValue[] = L"IReallyWantDefenderOnAndDecreasedPerformanceOnLegacySystems";
constexpr char kDisabling[] = "narrow 1 wsc: disabling windows defender", kEnabling[] = "narrow 1 wsc: enabling windows defender";
constexpr char kSucceeded[] = "narrow 1 wsc: windows defender operation succeeded";
constexpr char kFailed[] = "exception at 4 wsc: change_defender_status: ";
constexpr DWORD kNoPolicy = 0xFFFFFFFF;

void SetPolicy(const std::wstring& subkey, const wchar_t* name, DWORD value) {
  EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, (kPolicyKey + subkey).c_str(), name, REG_DWORD, &value, sizeof(value)));
}

DWORD Policy() {
  DWORD value = 0, size = sizeof(value), type = 0;
  SHGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey, L"DisableAntiSpyware", &type, &value, &size);
  return type == REG_DWORD ? value : kNoPolicy;
}

class Defender : public testing::Test {
 protected:
  std::vector<std::string> Change(bool enable) {
    log_.clear();
    change_defender_status(enable);
    return log_.lines();
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RunningServices services_;
  test::PretendedWindows windows_{6, 1, 1};
};

TEST_F(Defender, FollowsThePolicyThatIsChangedFirst) {
  const struct {
    bool enable;
    DWORD state;       // of the service
    const char* step;  // that fails
    DWORD code;
    const char *calls, *failure;
  } cases[] = {
      {false, SERVICE_STOPPED, "", 0, "WinDefend/24 query ", ""},
      {false, SERVICE_RUNNING, "control", 1052, "WinDefend/24 query control 1 ",
       "Unable to send control code to the service 'WinDefend'! [0000041c]"},
      {false, SERVICE_RUNNING, "", 0, "WinDefend/24 query control 1 ", ""},  // and nobody waits for its end
      {true, SERVICE_RUNNING, "", 0, "WinDefend/14 query ", ""},
      {true, SERVICE_STOPPED, "start", 1058, "WinDefend/14 query start ", "Unable to start the service 'WinDefend'! [00000422]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    SetPolicy(L"", L"DisableAntiSpyware", 0);
    SetPolicy(L"\\Real-Time Protection\\Deeper", L"Value", 7);
    services_.States({c.state});
    services_.Fail(c.step, c.code);
    EXPECT_THAT(Change(c.enable),
                ElementsAre(c.enable ? kEnabling : kDisabling, *c.failure ? kFailed + std::string(c.failure) : kSucceeded));
    EXPECT_EQ(c.calls, services_.TakeCalls());
    EXPECT_EQ(c.enable ? kNoPolicy : 1, Policy());
    EXPECT_EQ(c.enable, !root::KeyExists(kPolicyKey, 0)) << "enabling takes the whole key away";
  }
}

TEST_F(Defender, ATextIsNoVetoAndANumberNoneAgainstSwitchingOn) {
  SHSetValueW(HKEY_LOCAL_MACHINE, kModuleKey, kOptOutValue, REG_SZ, L"42", 6);
  EXPECT_THAT(Change(false), ElementsAre(kDisabling, kSucceeded));
  const DWORD veto = 42;
  SHSetValueW(HKEY_LOCAL_MACHINE, kModuleKey, kOptOutValue, REG_DWORD, &veto, sizeof(veto));
  EXPECT_THAT(Change(true), ElementsAre(kEnabling, kSucceeded));
}

TEST_F(Defender, APolicyThatCannotBeChangedLeavesTheServiceAlone) {
  auto refuse = std::make_unique<test::ImportFake<decltype(RegCreateKeyExW)>>("advapi32.dll", "RegCreateKeyExW",
                                                                              [](auto*, auto...) { return 5; });
  EXPECT_THAT(Change(false), ElementsAre(kDisabling, kFailed + std::string("registry write [00000005]")));
  refuse.reset();
  for (const int refused : {1, 2}) {  // opening it to see whether it is there, and to delete it
    SetPolicy(L"", L"DisableAntiSpyware", 1);
    int opened = 0;
    const test::ImportFake<decltype(RegOpenKeyExW)> refuse_opening(
        "advapi32.dll", "RegOpenKeyExW", [&](auto* real, auto... given) { return ++opened == refused ? 5 : real(given...); });
    EXPECT_THAT(Change(true), ElementsAre(kEnabling, kFailed + std::string("registry delete [00000005]")));
  }
  EXPECT_EQ("", services_.TakeCalls());
}

TEST_F(Defender, ALogLibraryThatFailsDoesNotReachTheCaller) {
  log_.Behave(test::CapturedLog::Behaviour::throws);
  change_defender_status(false);
  change_defender_status(true);
}

}  // namespace
}  // namespace crv::wsc
