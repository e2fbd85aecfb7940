#include "wsc/legacy_wmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wmi/control.h"
#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/back_end.h"
#include "wsc/client.h"
#include "wsc/defender.h"
#include "wsc/pretended_system.h"

namespace crv::wsc {
namespace {

// On Windows Vista without a service pack.
class Wmi : public testing::Test {
 protected:
  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredClass wmi_{L"security_center_wmi.dll", CLSID_WbemLocator};
  test::PretendedWindows windows_{6, 0, 0};
};

TEST_F(Wmi, WhatIsNoKnownStateIsWrittenAsNotOnAndNotUpToDate) {
  const auto property = [](const wchar_t* name) { return standins::WmiInstances().at(0).properties.at(name); };
  update_as(ProductState{7}, SignatureStatus{2});
  EXPECT_EQ(standins::WmiValue(false), property(L"productEnabled"));
  EXPECT_EQ(standins::WmiValue(false), property(L"productUptoDate"));
  unregister_as();
  update_fw(ProductState{7});
  EXPECT_EQ(standins::WmiValue(false), property(L"enabled"));
  EXPECT_EQ(standins::WmiValue(L"1.20.300.65535"), property(L"versionNumber"));
  unregister_fw();
  EXPECT_THAT(standins::WmiInstances(), testing::IsEmpty());
}

TEST_F(Wmi, APropertyThatIsRefusedIsNamedAndNothingIsWritten) {
  standins::WmiCalls().Script(L"Put.productEnabled", {L"0x80040154"});
  EXPECT_EQ("error 80040154 wmi Put prop failed: productEnabled", test::Thrown(register_as));
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
