#include "wsc/legacy_wmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control/wmi_control.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"
#include "wsc/client.h"
#include "wsc/pretended_windows.h"
#include "wsc/registered_class.h"

namespace crv::wsc {
namespace {

using testing::IsEmpty;
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
      {register_as, kAntiSpywareClass, {{L"productUptoDate", true}, {L"productEnabled", true}}},
      {[] { update_as(snoozed, fresh); }, kAntiSpywareClass, {{L"productUptoDate", true}, {L"productEnabled", false}}},
      {register_fw, kFirewallClass, {{L"enabled", true}}},
      {[] { update_fw(snoozed); }, kFirewallClass, {{L"enabled", false}}},
      {unregister_av, kAntiVirusClass, {}},
      {unregister_as, kAntiSpywareClass, {}},
      {unregister_fw, kFirewallClass, {}},
  };
  std::map<std::wstring, Properties> expected;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    c.operation();
    expected.erase(c.class_name);
    if (!c.properties.empty()) {
      expected[c.class_name] = c.properties;
      expected[c.class_name].insert({{L"instanceGuid", L"{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}"},
                                     {L"displayName", L"Corvid Antivirus"},
                                     {L"companyName", L"CORVID Software"},
                                     {L"versionNumber", L"1.20.300.65535"}});
    }
    std::map<std::wstring, Properties> instances;
    for (const standins::WmiInstance& instance : standins::WmiInstances()) {
      EXPECT_TRUE(instances.insert({instance.class_name, instance.properties}).second) << "a second instance";
    }
    EXPECT_EQ(expected, instances);
  }
}

TEST_F(Wmi, WindowsXpHasNoAntiSpyware) {
  const test::PretendedWindows windows(5, 1, 3);
  register_as();
  update_as(ProductState::off, SignatureStatus::up_to_date);
  unregister_as();
  EXPECT_THAT(standins::WmiCalls().Journal(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
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
      {L"Put.instanceGuid", "wmi Put prop failed: instanceGuid"},
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
  EXPECT_THAT(standins::WmiInstances(), IsEmpty());
}

TEST_F(Wmi, NullPointersAndMissingMemoryAreTheSupportLibrarysErrors) {
  const auto raised = [] {
    try {
      register_fw();
    } catch (const _com_error& failure) {
      return failure.Error();
    }
    return S_OK;
  };
  for (const wchar_t* call : {L"ConnectServer", L"GetObject", L"SpawnInstance"}) {
    standins::WmiCalls().Script(call, {L"null"});
    EXPECT_EQ(E_POINTER, raised());
  }
  const test::ImportFake<decltype(SysAllocString)> exhausted("oleaut32.dll", "SysAllocString",
                                                             [](auto*, auto...) { return nullptr; });
  EXPECT_EQ(E_OUTOFMEMORY, raised());
}

}  // namespace
}  // namespace crv::wsc
