#include "wsc/legacy_wmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control/wmi_control.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/registered_centre.h"
#include "support/thrown.h"
#include "wsc/client.h"
#include "wsc/pretended_windows.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Properties = standins::WmiProperties;

constexpr wchar_t kGuid[] = L"{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}";

std::vector<std::string> Calls() {
  std::vector<std::string> calls;
  for (const std::wstring& call : standins::WmiCalls().Journal()) calls.emplace_back(call.begin(), call.end());
  return calls;
}

Properties Common(Properties properties) {
  properties.insert({{L"instanceGuid", kGuid},
                     {L"displayName", L"Corvid Antivirus"},
                     {L"companyName", L"CORVID Software"},
                     {L"versionNumber", L"1.20.300.65535"}});
  return properties;
}

// On Windows Vista without a service pack, unless a test says otherwise.
class Wmi : public testing::Test {
 protected:
  ~Wmi() override {
    EXPECT_EQ(0, wmi_.live_objects()) << "an interface pointer was leaked";
    EXPECT_EQ(puts_, clears_) << "variants that were put and not cleared, or cleared twice";
  }

  // Counts what `Calls` shows as put, and forgets it.
  void ForgetCalls() {
    for (const std::string& call : Calls()) puts_ += call.starts_with("Put.");
    standins::ClearWmi();
  }
  void TearDown() override { ForgetCalls(); }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredWmi wmi_;
  test::PretendedWindows windows_{6, 0, 0};
  int puts_ = 0;
  int clears_ = 0;
  test::ImportFake<decltype(VariantClear)> clear_{"oleaut32.dll", "VariantClear", [this](auto* real, VARIANT* value) {
                                                    clears_ += V_VT(value) != VT_EMPTY;
                                                    return real(value);
                                                  }};
};

TEST_F(Wmi, AnUpdatePutsEveryPropertyInOrderAndThenTheInstance) {
  update_av(ProductState::on, SignatureStatus::out_of_date);
  const std::string guid(kGuid, std::end(kGuid) - 1);
  EXPECT_THAT(Calls(), ElementsAre("Create() = 0x00000000", "ConnectServer(\"root\\SecurityCenter2\") = 0x00000000",
                                   "GetObject(\"AntiVirusProduct\") = 0x00000000", "SpawnInstance(AntiVirusProduct) = 0x00000000",
                                   "Put.instanceGuid(\"" + guid + "\") = 0x00000000",
                                   "Put.displayName(\"Corvid Antivirus\") = 0x00000000",
                                   "Put.companyName(\"CORVID Software\") = 0x00000000",
                                   "Put.versionNumber(\"1.20.300.65535\") = 0x00000000", "Put.productUptoDate(false) = 0x00000000",
                                   "Put.onAccessScanningEnabled(true) = 0x00000000", "PutInstance(AntiVirusProduct) = 0x00000000"));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 1 wsc: update_xp AntiVirusProduct"));
}

TEST_F(Wmi, EveryOperationWritesOrDeletesTheInstanceOfItsClass) {
  struct Case {
    std::function<void()> operation;
    const wchar_t* class_name;
    Properties properties;  // none: deleted
  };
  const auto old = SignatureStatus::out_of_date, fresh = SignatureStatus::up_to_date;
  const auto on = ProductState::on, off = ProductState::off, snoozed = ProductState::snoozed;
  const Case cases[] = {
      {register_av, kAntiVirusClass, {{L"productUptoDate", true}, {L"onAccessScanningEnabled", true}}},
      {[=] { update_av(off, fresh); }, kAntiVirusClass, {{L"productUptoDate", true}, {L"onAccessScanningEnabled", false}}},
      {[=] { update_av(snoozed, old); }, kAntiVirusClass, {{L"productUptoDate", false}, {L"onAccessScanningEnabled", false}}},
      {[=] { update_av(on, static_cast<SignatureStatus>(2)); }, kAntiVirusClass,
       {{L"productUptoDate", false}, {L"onAccessScanningEnabled", true}}},
      {register_as, kAntiSpywareClass, {{L"productUptoDate", true}, {L"productEnabled", true}}},
      {[=] { update_as(snoozed, old); }, kAntiSpywareClass, {{L"productUptoDate", false}, {L"productEnabled", false}}},
      {[=] { update_as(on, fresh); }, kAntiSpywareClass, {{L"productUptoDate", true}, {L"productEnabled", true}}},
      {register_fw, kFirewallClass, {{L"enabled", true}}},
      {[=] { update_fw(snoozed); }, kFirewallClass, {{L"enabled", false}}},
      {[=] { update_fw(on); }, kFirewallClass, {{L"enabled", true}}},
      {unregister_av, kAntiVirusClass, {}},
      {unregister_as, kAntiSpywareClass, {}},
      {unregister_fw, kFirewallClass, {}},
  };
  std::map<std::wstring, Properties> expected;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    c.operation();
    expected.erase(c.class_name);
    if (!c.properties.empty()) expected[c.class_name] = Common(c.properties);
    std::map<std::wstring, Properties> instances;
    for (const standins::WmiInstance& instance : standins::WmiInstances()) {
      EXPECT_EQ(L"root\\SecurityCenter2", instance.name_space);
      EXPECT_TRUE(instances.insert({instance.class_name, instance.properties}).second) << "a second instance";
    }
    EXPECT_EQ(expected, instances);
  }
}

TEST_F(Wmi, DeletingNamesTheInstanceAndFailsWhenThereIsNone) {
  standins::WriteWmiInstance({L"root\\SecurityCenter2", kFirewallClass, L"another", {{L"instanceGuid", L"another"}}});
  EXPECT_EQ("error 80041002 wmi DeleteInstance", test::Thrown(unregister_fw));
  const std::string guid(kGuid, std::end(kGuid) - 1);
  EXPECT_THAT(Calls(), ElementsAre("Create() = 0x00000000", "ConnectServer(\"root\\SecurityCenter2\") = 0x00000000",
                                   "DeleteInstance(\"FirewallProduct.instanceGuid=\"" + guid + "\"\") = 0x80041002"));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 1 wsc: unregistration_xp FirewallProduct"));
  EXPECT_EQ(1u, standins::WmiInstances().size()) << "another product's instance stays";
}

TEST_F(Wmi, WindowsXpHasTheOldNamespaceAndNoAntiSpyware) {
  EXPECT_STREQ(L"root\\SecurityCenter", wmi_namespace(5));
  EXPECT_STREQ(L"root\\SecurityCenter2", wmi_namespace(6));
  EXPECT_STREQ(L"root\\SecurityCenter2", wmi_namespace(10));
  const test::PretendedWindows windows(5, 1, 3);
  register_as();
  update_as(ProductState::off, SignatureStatus::up_to_date);
  unregister_as();
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
  update_av(ProductState::on, SignatureStatus::up_to_date);
  update_fw(ProductState::on);
  for (const wchar_t* class_name : {kAntiVirusClass, kFirewallClass}) {
    EXPECT_TRUE(standins::FindWmiInstance(L"root\\SecurityCenter", class_name, kGuid));
  }
}

TEST_F(Wmi, EachFailingStepIsNamedWithItsCodeAndNothingIsWritten) {
  struct Case {
    const wchar_t* call;
    const char* thrown;
    bool deleting;
  };
  const Case cases[] = {
      {L"Create", "error 80040154 create CLSID_WbemLocator", false},
      {L"ConnectServer", "error 80040154 wbem_locator->ConnectServer", false},
      {L"GetObject", "error 80040154 wmi GetObjectW", false},
      {L"SpawnInstance", "error 80040154 wmi SpawnInstance", false},
      {L"Put.instanceGuid", "error 80040154 wmi Put prop failed: instanceGuid", false},
      {L"Put.displayName", "error 80040154 wmi Put prop failed: displayName", false},
      {L"Put.companyName", "error 80040154 wmi Put prop failed: companyName", false},
      {L"Put.versionNumber", "error 80040154 wmi Put prop failed: versionNumber", false},
      {L"Put.productUptoDate", "error 80040154 wmi Put prop failed: productUptoDate", false},
      {L"Put.productEnabled", "error 80040154 wmi Put prop failed: productEnabled", false},
      {L"PutInstance", "error 80040154 update status PutInstance", false},
      {L"ConnectServer", "error 80040154 wbem_locator->ConnectServer", true},
      {L"DeleteInstance", "error 80040154 wmi DeleteInstance", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    ForgetCalls();
    standins::WmiCalls().Script(c.call, {L"0x80040154"});
    EXPECT_EQ(c.thrown, test::Thrown(c.deleting ? unregister_as : register_as));
    EXPECT_THAT(standins::WmiInstances(), IsEmpty());
  }
}

TEST_F(Wmi, AVersionThatCannotBeReadWritesNothing) {
  const test::ImportFake<decltype(GetFileVersionInfoSizeW)> refuse("version.dll", "GetFileVersionInfoSizeW", [](auto*, auto...) {
    SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
    return 0;
  });
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
  const test::ImportFake<decltype(SysAllocString)> exhausted("oleaut32.dll", "SysAllocString", [](auto*, auto...) { return nullptr; });
  EXPECT_EQ(E_OUTOFMEMORY, raised());
}

}  // namespace
}  // namespace crv::wsc
