#include "wsc/legacy_wmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "wmi/control.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/back_end.h"
#include "wsc/client.h"
#include "wsc/defender.h"
#include "wsc/pretended_system.h"

namespace crv::wsc {
namespace {

using Properties = standins::WmiProperties;

// On Windows Vista without a service pack.
class Wmi : public testing::Test {
 protected:
  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredClass wmi_{L"security_center_wmi.dll", CLSID_WbemLocator};
  test::PretendedWindows windows_{6, 0, 0};
};

TEST_F(Wmi, EveryOperationWritesOrDeletesTheInstanceOfItsClass) {
  constexpr auto on = ProductState::on, off = ProductState::off, snoozed = ProductState::snoozed;
  constexpr auto fresh = SignatureStatus::up_to_date;
  const struct {
    std::function<void()> operation;
    const wchar_t* class_name;
    Properties properties;  // beside those of every class; none: deleted
  } cases[] = {
      {register_av, kAntiVirusClass, {{L"productUptoDate", true}, {L"onAccessScanningEnabled", true}}},
      {[] { update_av(off, fresh); }, kAntiVirusClass, {{L"productUptoDate", true}, {L"onAccessScanningEnabled", false}}},
      {[] { update_av(on, SignatureStatus{2}); },
       kAntiVirusClass,
       {{L"productUptoDate", false}, {L"onAccessScanningEnabled", true}}},
      {[] { update_as(snoozed, fresh); }, kAntiSpywareClass, {{L"productUptoDate", true}, {L"productEnabled", false}}},
      {register_fw, kFirewallClass, {{L"enabled", true}}},
      {[] { update_fw(snoozed); }, kFirewallClass, {{L"enabled", false}}},
      {unregister_av, kAntiVirusClass, {}},
      {unregister_as, kAntiSpywareClass, {}},
      {unregister_fw, kFirewallClass, {}},
  };
  std::multimap<std::wstring, Properties> expected;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    c.operation();
    expected.erase(c.class_name);
    if (!c.properties.empty()) {
      expected.insert({c.class_name, c.properties})
          ->second.insert({{L"instanceGuid", L"{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}"},
                           {L"displayName", L"Corvid Antivirus"},
                           {L"companyName", L"CORVID Software"},
                           {L"versionNumber", L"1.20.300.65535"}});
    }
    std::multimap<std::wstring, Properties> instances;
    for (const auto& instance : standins::WmiInstances()) instances.insert({instance.class_name, instance.properties});
    EXPECT_EQ(expected, instances);
  }
}

TEST_F(Wmi, EachFailingStepIsNamedWithItsCodeAndNothingIsWritten) {
  const struct {
    const wchar_t* call;
    const char* step;
    void (*operation)() = register_as;
  } cases[] = {
      {L"Create", "create CLSID_WbemLocator"},
      {L"ConnectServer", "wbem_locator->ConnectServer"},
      {L"GetObject", "wmi GetObjectW"},
      {L"SpawnInstance", "wmi SpawnInstance"},
      {L"Put.productEnabled", "wmi Put prop failed: productEnabled"},
      {L"PutInstance", "update status PutInstance"},
      {L"DeleteInstance", "wmi DeleteInstance", unregister_as},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.step);
    standins::WmiCalls().Script(c.call, {L"0x80040154"});
    EXPECT_EQ("error 80040154 " + std::string(c.step), test::Thrown(c.operation));
  }
  const test::ImportFake<decltype(GetFileVersionInfoSizeW)> refuse(
      "version.dll", "GetFileVersionInfoSizeW", [](auto*, auto...) { return SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND), 0; });
  EXPECT_EQ("error 00000715 GetFileVersionInfoSizeW", test::Thrown(register_av));
  EXPECT_THAT(standins::WmiInstances(), testing::IsEmpty());
}

TEST_F(Wmi, NullPointersAreTheSupportLibrarysErrors) {
  for (const wchar_t* call : {L"ConnectServer", L"GetObject", L"SpawnInstance"}) {
    standins::WmiCalls().Script(call, {L"null"});
    EXPECT_THROW(register_fw(), _com_error);
  }
}

TEST_F(Wmi, TheVersionOfWindowsDecidesWhatIsThere) {
  const test::RunningServices services;
  const struct {
    WORD major, minor, service_pack;
    bool isv, defender, newer_wmi;
  } cases[] = {{5, 2, 2, false, true, false}, {6, 0, 0, false, true, true}, {6, 0, 1, true, true, true},
               {6, 1, 0, true, true, true},   {6, 2, 0, true, false, true}, {10, 0, 0, true, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.major << '.' << c.minor << " SP" << c.service_pack);
    const test::PretendedWindows windows(c.major, c.minor, c.service_pack);
    log_.clear();
    EXPECT_EQ(c.isv, isv_available());
    change_defender_status(true);
    EXPECT_EQ(c.defender, !log_.lines().empty());
    standins::ClearWmi();
    update_xp(kFirewallClass, ProductState::on, SignatureStatus::up_to_date);
    EXPECT_EQ(c.newer_wmi ? standins::kNewNamespace : standins::kOldNamespace, standins::WmiInstances().at(0).name_space);
    EXPECT_EQ(c.newer_wmi, wmi_has_security_center2());
  }
}

}  // namespace
}  // namespace crv::wsc
