#include "wsc/defender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include "root/registry.h"
#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "wsc/pretended_windows.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Microsoft\\Windows Defender";
constexpr wchar_t kOptOutValue[] = L"IReallyWantDefenderOnAndDecreasedPerformanceOnLegacySystems";
constexpr char kDisabling[] = "narrow 1 wsc: disabling windows defender";
constexpr char kEnabling[] = "narrow 1 wsc: enabling windows defender";
constexpr char kSucceeded[] = "narrow 1 wsc: windows defender operation succeeded";
constexpr DWORD kNoPolicy = 0xFFFFFFFF;

void SetValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data, DWORD size) {
  EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, key, name, type, data, size));
}

void SetPolicy(DWORD value) { SetValue(kPolicyKey, L"DisableAntiSpyware", REG_DWORD, &value, sizeof(value)); }

DWORD Policy() {
  DWORD value = 0, size = sizeof(value), type = 0;
  if (SHGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey, L"DisableAntiSpyware", &type, &value, &size) != ERROR_SUCCESS) return kNoPolicy;
  EXPECT_EQ(DWORD{REG_DWORD}, type);
  return value;
}

bool PolicyKeyExists() { return root::KeyExists(kPolicyKey, 0); }

class Defender : public testing::Test {
 protected:
  Defender() {
    DWORD start = SERVICE_AUTO_START;
    SetValue(L"SYSTEM\\CurrentControlSet\\Services\\WinDefend", L"Start", REG_DWORD, &start, sizeof(start));
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RunningServices services_;
  test::PretendedWindows windows_{6, 1, 1};
};

TEST_F(Defender, IsSwitchedBeforeWindows8Only) {
  struct Case {
    DWORD major, minor;
    bool switched;
  };
  for (const Case& c : {Case{5, 1, true}, {5, 2, true}, {6, 0, true}, {6, 1, true}, {6, 2, false}, {6, 3, false}, {7, 0, false}, {10, 0, false}}) {
    SCOPED_TRACE(testing::Message() << c.major << '.' << c.minor);
    const test::PretendedWindows windows(c.major, c.minor, 1);
    log_.clear();
    change_defender_status(false);
    EXPECT_EQ(c.switched ? 1 : kNoPolicy, Policy());
    change_defender_status(true);
    EXPECT_EQ(c.switched ? 4u : 0u, log_.lines().size());
    EXPECT_EQ(c.switched, services_.TakeCalls() != "");
  }
}

TEST_F(Defender, OffWritesThePolicyAndStopsARunningServiceWithoutWaiting) {
  SetPolicy(0);
  change_defender_status(false);
  EXPECT_EQ(1u, Policy());
  EXPECT_EQ("WinDefend/24 query control 1 ", services_.TakeCalls());
  EXPECT_THAT(log_.lines(), ElementsAre(kDisabling, kSucceeded));
  for (const DWORD state : {SERVICE_STOPPED, SERVICE_STOP_PENDING}) {
    services_.States({state});
    change_defender_status(false);
    EXPECT_EQ("WinDefend/24 query ", services_.TakeCalls()) << "no second control in state " << state;
  }
}

TEST_F(Defender, OnDeletesTheWholePolicyKeyAndStartsAStoppedServiceWithoutWaiting) {
  SetPolicy(1);
  const DWORD other = 7;
  SetValue(kPolicyKey, L"Other", REG_DWORD, &other, sizeof(other));
  SetValue((std::wstring(kPolicyKey) + L"\\Real-Time Protection\\Deeper").c_str(), L"Value", REG_DWORD, &other, sizeof(other));
  services_.States({SERVICE_STOPPED});
  for (int i = 0; i < 2; ++i) {  // the second time there is no key
    log_.clear();
    change_defender_status(true);
    EXPECT_FALSE(PolicyKeyExists());
    EXPECT_EQ("WinDefend/14 query start ", services_.TakeCalls());
    EXPECT_THAT(log_.lines(), ElementsAre(kEnabling, kSucceeded));
  }
  for (const DWORD state : {SERVICE_START_PENDING, SERVICE_RUNNING}) {
    services_.States({state});
    change_defender_status(true);
    EXPECT_EQ("WinDefend/14 query ", services_.TakeCalls()) << "not asked again in state " << state;
  }
}

TEST_F(Defender, OnlyTheNumber42OptsOutOfSwitchingOff) {
  struct Case {
    DWORD type;
    const char* data;
    DWORD size;
    bool opted_out;
  };
  for (const Case& c : {Case{REG_DWORD, "\x2a\0\0", 4, true}, {REG_DWORD, "\x29\0\0", 4, false}, {REG_SZ, "4\0002\0\0", 6, false},
                        {REG_BINARY, "\x2a\0\0", 4, false}}) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " first byte " << int{c.data[0]});
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, kPolicyKey);
    SetValue(kModuleKey, kOptOutValue, c.type, c.data, c.size);
    log_.clear();
    change_defender_status(false);
    EXPECT_EQ(c.opted_out ? kNoPolicy : 1, Policy());
    EXPECT_EQ(c.opted_out ? "" : "WinDefend/24 query control 1 ", services_.TakeCalls());
    EXPECT_EQ(c.opted_out ? 0u : 2u, log_.lines().size());
  }
  SetValue(kModuleKey, kOptOutValue, REG_DWORD, "\x2a\0\0", 4);
  change_defender_status(true);
  EXPECT_FALSE(PolicyKeyExists()) << "switching on does not care";
}

TEST_F(Defender, EachFailingStepIsLoggedAndEndsTheSwitch) {
  struct Case {
    bool enable;
    const char* step;
    DWORD code;
    const char* failure;
    const char* calls;
  };
  const Case cases[] = {
      {false, "manager", 5, "Unable to open the service control manager! [00000005]", ""},
      {false, "open", 1060, "Unable to open the service 'WinDefend'! [00000424]", "WinDefend/24 "},
      {false, "control", 1052, "Unable to send control code to the service 'WinDefend'! [0000041c]", "WinDefend/24 query control 1 "},
      {true, "open", 5, "Unable to open the service 'WinDefend'! [00000005]", "WinDefend/14 "},
      {true, "start", 1058, "Unable to start the service 'WinDefend'! [00000422]", "WinDefend/14 query start "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    SetPolicy(0);
    services_.States({c.enable ? DWORD{SERVICE_STOPPED} : DWORD{SERVICE_RUNNING}});
    services_.Fail(c.step, c.code);
    log_.clear();
    change_defender_status(c.enable);
    EXPECT_THAT(log_.lines(), ElementsAre(c.enable ? kEnabling : kDisabling,
                                          std::string("exception at 4 wsc: change_defender_status: ") + c.failure));
    EXPECT_EQ(c.calls, services_.TakeCalls());
    EXPECT_EQ(c.enable ? kNoPolicy : 1, Policy()) << "the policy was changed before and stays";
  }
}

TEST_F(Defender, APolicyThatCannotBeChangedLeavesTheServiceAlone) {
  {
    const test::ImportFake<decltype(RegCreateKeyExW)> refuse("advapi32.dll", "RegCreateKeyExW", [](auto*, auto...) { return 5; });
    change_defender_status(false);
    EXPECT_THAT(log_.lines(), ElementsAre(kDisabling, "exception at 4 wsc: change_defender_status: registry write [00000005]"));
  }
  SetPolicy(1);
  log_.clear();
  const test::ImportFake<decltype(RegOpenKeyExW)> refuse("advapi32.dll", "RegOpenKeyExW",
                                                         [](auto* real, HKEY root, const wchar_t* key, DWORD options, REGSAM access, HKEY* opened) {
                                                           const bool for_deleting = access & KEY_ENUMERATE_SUB_KEYS;
                                                           return for_deleting ? LSTATUS{5} : real(root, key, options, access, opened);
                                                         });
  change_defender_status(true);
  EXPECT_THAT(log_.lines(), ElementsAre(kEnabling, "exception at 4 wsc: change_defender_status: registry delete [00000005]"));
  EXPECT_EQ(1u, Policy());
  EXPECT_EQ("", services_.TakeCalls());
}

TEST_F(Defender, ALogLibraryThatFailsDoesNotReachTheCaller) {
  log_.Behave(test::CapturedLog::Behaviour::throws);
  change_defender_status(false);
  change_defender_status(true);
}

}  // namespace
}  // namespace crv::wsc
