#include "wsc/isv_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include <algorithm>
#include <functional>

#include "control/security_center_control.h"
#include "support/captured_log.h"
#include "support/import_patch.h"
#include "support/redirected_hive.h"
#include "support/registered_centre.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/client.h"
#include "wsc/pretended_windows.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Strings = std::vector<std::string>;
using Answers = std::vector<std::wstring>;

int sleeps = 0;
DWORD slept = 0;

void WINAPI CountingSleep(DWORD milliseconds) {
  ++sleeps;
  slept += milliseconds;
}

std::wstring RecordedName(const wchar_t* value) {
  wchar_t text[100] = {};
  DWORD size = sizeof(text);
  DWORD type = 0;
  if (SHGetValueW(HKEY_LOCAL_MACHINE, kModuleKey, value, &type, text, &size) != ERROR_SUCCESS) return L"(none)";
  EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
  EXPECT_EQ((std::wcslen(text) + 1) * sizeof(wchar_t), size);
  return text;
}

void RecordName(const wchar_t* value, DWORD type, const std::wstring& text) {
  EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, kModuleKey, value, type, text.c_str(),
                            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))));
}

// The calls that reached Security Center, without the creations of the interfaces before them.
Strings CallNames() {
  Strings names;
  for (const std::wstring& call : standins::Calls()) {
    if (call.find(L".Create(") == std::wstring::npos) names.emplace_back(call.begin(), call.end());
  }
  return names;
}

void ForgetCalls() { SHDeleteKeyW(HKEY_LOCAL_MACHINE, (standins::kSecurityCenterKey + std::wstring(L"\\Journal")).c_str()); }

class Client : public testing::Test {
 protected:
  Client() { sleeps = slept = 0; }
  ~Client() override { EXPECT_EQ(0, centre_.live_objects()) << "an interface pointer was leaked"; }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredCentre centre_;
  test::RunningServices services_;
  test::PretendedWindows windows_{10, 0, 0};
  test::ImportPatch sleep_{"kernel32.dll", "Sleep", reinterpret_cast<void*>(&CountingSleep)};
};

TEST_F(Client, TheFirstUpdateRegistersThenPushes) {
  update_av(ProductState::snoozed, SignatureStatus::out_of_date);
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 1 wsc: Updating struct IWscAVStatus", "narrow 2 wsc: wrong display name - reregistering",
                                        "narrow 1 wsc: Unregistering struct IWscAVStatus",
                                        "narrow 1 wsc: Unregister succeeded: 0x80070002",
                                        "narrow 1 wsc: Registering struct IWscAVStatus",
                                        "narrow 1 wsc: Register succeeded: 0x00000000",
                                        "narrow 1 wsc: UpdateStatus succeeded: 0x00000000"));
  const auto product = standins::ReadProduct(L"IWscAVStatus");
  ASSERT_TRUE(product);
  EXPECT_EQ(L"Corvid Antivirus", product->name);
  wchar_t host[MAX_PATH];
  GetModuleFileNameW(nullptr, host, MAX_PATH);
  EXPECT_STRCASEEQ(std::string(host, host + std::wcslen(host)).c_str(), std::string(product->path.begin(), product->path.end()).c_str());
  EXPECT_EQ(2u, product->state);
  EXPECT_EQ(0u, product->signatures_up_to_date);
  EXPECT_EQ(L"Corvid Antivirus", RecordedName(L"IWscAVStatus"));
}

TEST_F(Client, AnUpdateWithTheNameOnRecordOnlyPushes) {
  register_as();
  for (const auto& [signatures, expected] :
       {std::pair(SignatureStatus::up_to_date, 1u), {SignatureStatus::out_of_date, 0u}, {static_cast<SignatureStatus>(2), 0u}}) {
    log_.clear();
    update_as(ProductState::off, signatures);
    EXPECT_THAT(log_.lines(),
                ElementsAre("narrow 1 wsc: Updating struct IWscASStatus", "narrow 1 wsc: UpdateStatus succeeded: 0x00000000"));
    EXPECT_EQ(expected, standins::ReadProduct(L"IWscASStatus")->signatures_up_to_date);
  }
}

TEST_F(Client, AnyOtherRecordRegistersAgain) {
  struct Case {
    DWORD type;
    const wchar_t* text;
    bool differs;
  };
  const Case cases[] = {{REG_SZ, L"corvid antivirus", true},      {REG_SZ, L"Corvid Antivirus ", true}, {REG_BINARY, L"Corvid Antivirus", true},
                        {REG_EXPAND_SZ, L"Corvid Antivirus", false}, {REG_SZ, L"Corvid Antivirus", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    RecordName(L"IWscFWStatus", c.type, c.text);
    EXPECT_EQ(c.differs, isv_client<IWscFWStatus>::registered_name_differs());
  }
  RecordName(L"IWscFWStatus", REG_SZ, L"Corvid");
  update_fw(ProductState::on);
  EXPECT_EQ("narrow 2 wsc: wrong display name - reregistering", log_.lines().front()) << "the firewall has no Updating line";
  EXPECT_EQ(L"Corvid Antivirus", RecordedName(L"IWscFWStatus"));
}

TEST_F(Client, EveryKindUsesItsOwnInterface) {
  register_av();
  register_as();
  register_fw();
  update_fw(ProductState::off);
  unregister_as();
  EXPECT_THAT(CallNames(), ElementsAre(StartsWith("IWscAVStatus.Register("), StartsWith("IWscASStatus.Register("),
                                       StartsWith("IWscFWStatus.Register("), "IWscFWStatus.UpdateStatus(1) = 0x00000000",
                                       "IWscASStatus.Unregister() = 0x00000000"));
  EXPECT_TRUE(standins::ReadProduct(L"IWscAVStatus"));
  EXPECT_FALSE(standins::ReadProduct(L"IWscASStatus"));
  EXPECT_EQ(L"Corvid Antivirus", RecordedName(L"IWscASStatus")) << "the record outlives unregistering";
}

TEST_F(Client, UnregisteringToleratesTwoAnswersOnly) {
  unregister_fw();
  EXPECT_EQ("narrow 1 wsc: Unregister succeeded: 0x80070002", log_.lines().back());
  standins::Script(L"IWscFWStatus.Unregister", Answers{L"0x80074005", L"0x80004005"});
  unregister_fw();
  EXPECT_EQ("narrow 1 wsc: Unregister succeeded: 0x80074005", log_.lines().back());
  EXPECT_EQ("error 80004005 WSC Unregister: struct IWscFWStatus", test::Thrown(unregister_fw));
}

TEST_F(Client, PendingAnswersAreRepeatedEvery50Milliseconds) {
  RecordName(L"IWscFWStatus", REG_SZ, L"Corvid Antivirus");
  standins::Script(L"IWscFWStatus.Register", Answers{L"0x8000000a", L"0x8000000a", L"0x00000001"});
  register_fw();
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 1 wsc: Registering struct IWscFWStatus", "narrow 2 wsc: wsc pending: 0",
                                        "narrow 1 wsc: Register succeeded: 0x00000001"));
  EXPECT_EQ(2, sleeps);
  EXPECT_EQ(100u, slept);
}

TEST_F(Client, PendingForeverEndsAfter18000Repeats) {
  register_av();
  log_.clear();
  ForgetCalls();
  standins::Script(L"IWscAVStatus.UpdateStatus", Answers{L"forever 0x8000000a"});
  EXPECT_EQ("error 8000000a WSC UpdateStatus: struct IWscAVStatus",
            test::Thrown([] { update_av(ProductState::on, SignatureStatus::up_to_date); }));
  EXPECT_EQ(18000, sleeps);
  const Strings lines = log_.lines();
  ASSERT_EQ(1u + 180u + 1u, lines.size());
  EXPECT_EQ("narrow 2 wsc: wsc pending: 0", lines[1]);
  EXPECT_EQ("narrow 2 wsc: wsc pending: 17900", lines[180]);
  EXPECT_EQ("narrow 5 wsc: wsc still pending", lines[181]);
  EXPECT_THAT(CallNames(), ElementsAre(HasSubstr("x18001"))) << "one call and 18,000 repeats";
}

TEST_F(Client, AnUnknownProductIsRegisteredAndPushedOnceMore) {
  RecordName(L"IWscAVStatus", REG_SZ, L"Corvid Antivirus");
  update_av(ProductState::off, SignatureStatus::up_to_date);
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 1 wsc: Updating struct IWscAVStatus", "narrow 3 wsc: Not registered, registering...",
                                        "narrow 1 wsc: Registering struct IWscAVStatus",
                                        "narrow 1 wsc: Register succeeded: 0x00000000",
                                        "narrow 1 wsc: UpdateStatus succeeded: 0x00000000"));
  EXPECT_EQ(1u, standins::ReadProduct(L"IWscAVStatus")->state);

  standins::Script(L"IWscAVStatus.UpdateStatus", Answers{L"forever 0x80070002"});
  ForgetCalls();
  EXPECT_EQ("error 80070002 WSC UpdateStatus: struct IWscAVStatus",
            test::Thrown([] { update_av(ProductState::off, SignatureStatus::up_to_date); }));
  EXPECT_THAT(CallNames(), ElementsAre("IWscAVStatus.UpdateStatus(1, 1) = 0x80070002", StartsWith("IWscAVStatus.Register("),
                                       "IWscAVStatus.UpdateStatus(1, 1) = 0x80070002"));
}

TEST_F(Client, FailuresCarryTheirCodeAndStepAndLeaveNoRecord) {
  standins::Script(L"IWscAVStatus.Register", Answers{L"0x80070005"});
  EXPECT_EQ("error 80070005 WSC Register: struct IWscAVStatus", test::Thrown(register_av));
  EXPECT_EQ(L"(none)", RecordedName(L"IWscAVStatus"));

  RecordName(L"IWscFWStatus", REG_SZ, L"Corvid Antivirus");
  standins::Script(L"IWscFWStatus.UpdateStatus", Answers{L"0x80004005"});
  EXPECT_EQ("error 80004005 WSC UpdateStatus: FW", test::Thrown([] { update_fw(ProductState::on); }));

  standins::Script(L"IWscASStatus.Create", Answers{L"0x8007000e"});
  const std::string thrown = test::Thrown(unregister_as);
  EXPECT_THAT(thrown, StartsWith("error 8007000e CoCreateInstance CLSID_WscIsv: "));
  EXPECT_THAT(thrown, HasSubstr("IWscASStatus"));
}

TEST_F(Client, AnUpdateThatFailsAfterRegisteringLeavesTheRegistration) {
  standins::Script(L"IWscAVStatus.UpdateStatus", Answers{L"0x80004005"});
  EXPECT_EQ("error 80004005 WSC UpdateStatus: struct IWscAVStatus",
            test::Thrown([] { update_av(ProductState::on, SignatureStatus::up_to_date); }));
  EXPECT_TRUE(standins::ReadProduct(L"IWscAVStatus"));
  EXPECT_EQ(L"Corvid Antivirus", RecordedName(L"IWscAVStatus"));
}

TEST_F(Client, ANullInterfaceIsTheSupportLibrarysPointerError) {
  standins::Script(L"IWscAVStatus.Create", Answers{L"null"});
  try {
    register_av();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const _com_error& failure) {
    EXPECT_EQ(E_POINTER, failure.Error());
  }
}

LONG WINAPI RefusingCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) {
  return ERROR_ACCESS_DENIED;
}
LONG WINAPI RefusingSetValue(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) { return ERROR_ACCESS_DENIED; }

TEST_F(Client, ARecordThatCannotBeWrittenIsLoggedAndTheRegistrationStands) {
  const std::pair<const char*, void*> refusals[] = {{"RegCreateKeyExW", reinterpret_cast<void*>(&RefusingCreateKey)},
                                                    {"RegSetValueExW", reinterpret_cast<void*>(&RefusingSetValue)}};
  for (const auto& [function, replacement] : refusals) {
    const test::ImportPatch refuse("advapi32.dll", function, replacement);
    log_.clear();
    isv_client<IWscFWStatus>::write_registered_name();
    EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 wsc: cannot write registered name"));
  }
}

TEST_F(Client, TheServiceIsMadeToRunBeforeEveryCreation) {
  update_av(ProductState::off, SignatureStatus::up_to_date);
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls()) << "for Unregister, Register and UpdateStatus";
  ForgetCalls();
  services_.Fail("open", ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_EQ("error 00000424 Unable to open the service 'wscsvc'!", test::Thrown(register_fw));
  EXPECT_THAT(standins::Calls(), IsEmpty()) << "no interface was created";
}

constexpr char kDefenderOff[] = "WinDefend/24 query control 1 ";
constexpr char kDefenderOn[] = "WinDefend/14 query start ";

TEST_F(Client, DefenderFollowsTheSuiteOnWindows7) {
  const test::PretendedWindows windows(6, 1, 1);
  struct Case {
    std::function<void()> request;
    const char* script;  // of what Security Center refuses, if it does
    const char* defender;
  };
  const auto up_to_date = SignatureStatus::up_to_date;
  const Case cases[] = {
      {[=] { update_av(ProductState::on, up_to_date); }, "", kDefenderOff},
      {[=] { update_as(ProductState::on, SignatureStatus::out_of_date); }, "", kDefenderOff},
      {[=] { update_av(ProductState::off, up_to_date); }, "", ""},
      {[=] { update_as(ProductState::snoozed, up_to_date); }, "", ""},
      {[] { update_fw(ProductState::on); }, "", ""},
      {register_av, "", ""},
      {[=] { update_av(ProductState::on, up_to_date); }, "IWscAVStatus.UpdateStatus", ""},
      {unregister_av, "", kDefenderOn},
      {unregister_as, "", kDefenderOn},
      {unregister_fw, "", ""},
      {unregister_av, "IWscAVStatus.Unregister", ""},
      {unregister_as, "IWscASStatus.Unregister", ""},
  };
  for (const wchar_t* kind : standins::kProductInterfaces) RecordName(kind, REG_SZ, L"Corvid Antivirus");
  const DWORD start = SERVICE_DEMAND_START;
  EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Services\\WinDefend", L"Start", REG_DWORD, &start, sizeof(start)));
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::string script = c.script;
    if (!script.empty()) standins::Script(std::wstring(script.begin(), script.end()), Answers{L"0x80004005"});
    // Security Center runs; Defender is in the state in which the request has something to do.
    services_.StateOf("WinDefend", c.defender == std::string(kDefenderOn) ? SERVICE_STOPPED : SERVICE_RUNNING);
    EXPECT_EQ(script.empty() ? "nothing" : "error", test::Thrown(c.request).substr(0, script.empty() ? 7 : 5));
    const std::string calls = services_.TakeCalls();
    EXPECT_EQ(c.defender, calls.substr(std::min(calls.find("WinDefend"), calls.size()))) << "Defender comes last";
  }
}

}  // namespace
}  // namespace crv::wsc
