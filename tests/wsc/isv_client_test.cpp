#include "wsc/isv_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include <functional>

#include "security_center/control.h"
#include "root/module_path.h"
#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/client.h"
#include "wsc/pretended_system.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

using testing::HasSubstr;
using Answers = std::vector<std::wstring>;
using Request = std::function<void()>;

constexpr auto kOn = ProductState::on, kOff = ProductState::off, kSnoozed = ProductState::snoozed;
constexpr auto kOld = SignatureStatus::out_of_date, kFresh = SignatureStatus::up_to_date;
constexpr wchar_t kName[] = L"Corvid Antivirus";
constexpr wchar_t kNoName[] = L"(none)";

std::wstring RecordedName(const std::wstring& value) {
  wchar_t text[100] = {};
  DWORD size = sizeof(text), type = REG_SZ;
  if (SHGetValueW(HKEY_LOCAL_MACHINE, kModuleKey, value.c_str(), &type, text, &size) != ERROR_SUCCESS) return kNoName;
  EXPECT_TRUE(type == REG_SZ && size == (std::wcslen(text) + 1) * sizeof(wchar_t));
  return text;
}

void RecordName(const std::wstring& value, const std::wstring& text) {
  const DWORD size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, kModuleKey, value.c_str(), REG_SZ, text.c_str(), size));
}

// "Interface.Method(arguments) = code; " for each call that reached Security Center. Left out are the creations of the
// interfaces, what every registration says, and the code 0.
std::string Sent() {
  const std::wstring registration = L"\"" + root::GetModulePath(nullptr) + L"\", \"" + kName + L"\", 0, 0";
  std::string text;
  for (std::wstring call : standins::SecurityCenterCalls().Journal()) {
    for (const std::wstring& usual : {registration, std::wstring(L" = 0x00000000")}) {
      if (const std::size_t at = call.find(usual); at != std::wstring::npos) call.erase(at, usual.size());
    }
    if (call.find(L".Create(") == std::wstring::npos) text += std::string(call.begin(), call.end()) + "; ";
  }
  return text;
}

class Client : public testing::Test {
 protected:
  // "LEVEL text; " for each record.
  std::string Log() const {
    std::string text;
    for (const std::string& line : log_.lines()) text += line.substr(7, 2) + line.substr(line.find(": ") + 2) + "; ";
    return text;
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RegisteredClass centre_{L"security_center.dll", CLSID_WscIsv};
  test::RunningServices services_;
  test::PretendedWindows windows_{10, 0, 0};
  std::vector<DWORD> sleeps_;  // ms
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto*, DWORD ms) { sleeps_.push_back(ms); }};
};

TEST_F(Client, RequestsSendTheirCallsAndSaySo) {
  const struct {
    Request request;
    std::wstring recorded, recorded_after;  // name
    std::wstring call;                      // that answers as scripted
    Answers answers;
    std::string thrown, sent, log;
  } cases[] = {
      // One under another name registers before it pushes the state.
      {[] { update_av(kSnoozed, kOld); },
       L"corvid antivirus",
       kName,
       L"IWscAVStatus.Register",
       {},
       "nothing",
       "IWscAVStatus.Unregister() = 0x80070002; IWscAVStatus.Register(); IWscAVStatus.UpdateStatus(2, 0); ",
       "1 Updating struct IWscAVStatus; 2 wrong display name - reregistering; 1 Unregistering struct IWscAVStatus; "
       "1 Unregister succeeded: 0x80070002; 1 Registering struct IWscAVStatus; 1 Register succeeded: 0x00000000; "
       "1 UpdateStatus succeeded: 0x00000000; "},
      // One whose product Security Center forgot registers after it, once.
      {[] { update_as(kOff, SignatureStatus{2}); },
       kName,
       kName,
       L"IWscASStatus.Register",
       {},
       "nothing",
       "IWscASStatus.UpdateStatus(1, 0) = 0x80070002; IWscASStatus.Register(); IWscASStatus.UpdateStatus(1, 0); ",
       "1 Updating struct IWscASStatus; 3 Not registered, registering...; 1 Registering struct IWscASStatus; "
       "1 Register succeeded: 0x00000000; 1 UpdateStatus succeeded: 0x00000000; "},
      {[] { update_fw(kOn); },
       kName,
       kName,
       L"IWscFWStatus.UpdateStatus",
       {L"forever 0x80070002"},
       "error 80070002 WSC UpdateStatus: FW",
       "IWscFWStatus.UpdateStatus(0) = 0x80070002; IWscFWStatus.Register(); IWscFWStatus.UpdateStatus(0) = 0x80070002; ",
       "3 Not registered, registering...; 1 Registering struct IWscFWStatus; 1 Register succeeded: 0x00000000; "},
      {register_fw,
       kNoName,
       kNoName,
       L"IWscFWStatus.Register",
       {L"0x80070005"},
       "error 80070005 WSC Register: struct IWscFWStatus",
       "IWscFWStatus.Register() = 0x80070005; ",
       "1 Registering struct IWscFWStatus; "},
      {register_as,
       kNoName,
       kName,
       L"IWscASStatus.Register",
       {L"0x8000000a", L"0x8000000a", L"0x00000001"},
       "nothing",
       "IWscASStatus.Register() = 0x8000000a x2; IWscASStatus.Register() = 0x00000001; ",
       "1 Registering struct IWscASStatus; 2 wsc pending: 0; 1 Register succeeded: 0x00000001; "},
      {unregister_as,
       kName,
       kName,
       L"IWscASStatus.Unregister",
       {L"0x80074005"},
       "nothing",
       "IWscASStatus.Unregister() = 0x80074005; ",
       "1 Unregistering struct IWscASStatus; 1 Unregister succeeded: 0x80074005; "},
      {unregister_fw,
       kName,
       kName,
       L"IWscFWStatus.Unregister",
       {L"0x80070005"},
       "error 80070005 WSC Unregister: struct IWscFWStatus",
       "IWscFWStatus.Unregister() = 0x80070005; ",
       "1 Unregistering struct IWscFWStatus; "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    standins::ClearSecurityCenter();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, kModuleKey);
    log_.clear();
    const std::wstring value = c.call.substr(0, c.call.find(L'.'));
    if (c.recorded != kNoName) RecordName(value, c.recorded);
    standins::SecurityCenterCalls().Script(c.call, c.answers);
    EXPECT_EQ(c.thrown, test::Thrown(c.request));
    EXPECT_EQ(c.sent, Sent());
    EXPECT_EQ(c.log, Log());
    EXPECT_EQ(c.recorded_after, RecordedName(value));
  }
  EXPECT_EQ(std::vector<DWORD>(2, 50), sleeps_) << "before each repeat of what was pending";
}

TEST_F(Client, PendingForeverEndsAfter18000Repeats) {
  RecordName(L"IWscAVStatus", kName);
  standins::SecurityCenterCalls().Script(L"IWscAVStatus.UpdateStatus", Answers{L"forever 0x8000000a"});
  EXPECT_EQ("error 8000000a WSC UpdateStatus: struct IWscAVStatus", test::Thrown([] { update_av(kOn, kFresh); }));
  EXPECT_EQ(std::vector<DWORD>(18000, 50), sleeps_);
  EXPECT_EQ(1u + 180u + 1u, log_.lines().size());
  EXPECT_TRUE(Log().ends_with("2 wsc pending: 17900; 5 wsc still pending; "));
  EXPECT_THAT(Sent(), HasSubstr("x18001")) << "one call and 18,000 repeats";
}

TEST_F(Client, AnInterfaceThatIsNotHandedOutIsAnError) {
  standins::SecurityCenterCalls().Script(L"IWscASStatus.Create", Answers{L"0x8007000e"});
  EXPECT_THAT(test::Thrown(unregister_as),
              testing::AllOf(testing::StartsWith("error 8007000e CoCreateInstance CLSID_WscIsv: "), HasSubstr("IWscASStatus")));
  standins::SecurityCenterCalls().Script(L"IWscAVStatus.Create", Answers{L"null"});
  EXPECT_THROW(register_av(), _com_error);
}

TEST_F(Client, ANameThatCannotBeWrittenIsOnlyLogged) {
  const test::ImportFake<decltype(RegSetValueExW)> refuse("advapi32.dll", "RegSetValueExW", [](auto*, auto...) { return 5; });
  isv_client<IWscFWStatus>::write_registered_name();
  EXPECT_EQ("4 cannot write registered name; ", Log());
}

TEST_F(Client, TheServiceIsMadeToRunBeforeEveryCreation) {
  update_av(kOff, kFresh);
  // For Unregister, Register and UpdateStatus.
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
  standins::ClearSecurityCenter();
  services_.Fail("open", ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_EQ("error 00000424 Unable to open the service 'wscsvc'!", test::Thrown(register_fw));
  EXPECT_EQ(Answers(), standins::SecurityCenterCalls().Journal()) << "no interface was created";
}

TEST_F(Client, DefenderFollowsTheSuiteOnWindows7) {
  constexpr char kDefenderOff[] = "WinDefend/24 query control 1 ", kDefenderOn[] = "WinDefend/14 query start ";
  const struct {
    Request request;
    std::wstring refused;  // call, if Security Center refuses one
    std::string defender;
  } cases[] = {{[] { update_av(kOn, kFresh); }, L"", kDefenderOff},
               {[] { update_as(kOn, kOld); }, L"", kDefenderOff},
               {[] { update_as(kSnoozed, kFresh); }, L"", ""},
               {[] { update_fw(kOn); }, L"", ""},
               {[] { update_av(kOn, kFresh); }, L"IWscAVStatus.UpdateStatus", ""},
               {register_av, L"", ""},
               {unregister_av, L"", kDefenderOn},
               {unregister_as, L"", kDefenderOn},
               {unregister_fw, L"", ""},
               {unregister_av, L"IWscAVStatus.Unregister", ""}};
  const test::PretendedWindows windows(6, 1, 1);
  for (const wchar_t* kind : standins::kProductInterfaces) RecordName(kind, kName);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    if (!c.refused.empty()) standins::SecurityCenterCalls().Script(c.refused, Answers{L"0x80004005"});
    // Security Center runs; Defender, asked after it, is in the state in which the request has something to do.
    services_.States({SERVICE_RUNNING, c.defender == kDefenderOn ? DWORD{SERVICE_STOPPED} : DWORD{SERVICE_RUNNING}});
    EXPECT_EQ(c.refused.empty(), test::Thrown(c.request) == "nothing");
    const std::string calls = services_.TakeCalls();
    EXPECT_TRUE(calls.ends_with(c.defender)) << calls;
    EXPECT_EQ(c.defender.empty(), calls.find("WinDefend") == std::string::npos) << calls;
  }
}

}  // namespace
}  // namespace crv::wsc
