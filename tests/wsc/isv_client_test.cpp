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
#include "wsc/pending.h"
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

// "Method(arguments) = code; " for each call of one interface that reached Security Center, with the interface's name for others.
// Left out are the creations of the interfaces, what every registration says, and the code 0.
std::string Sent(const std::wstring& interface_name) {
  const std::wstring registration = L"\"" + root::GetModulePath(nullptr) + L"\", \"" + kName + L"\", 0, 0";
  std::string text;
  for (std::wstring call : standins::SecurityCenterCalls().Journal()) {
    for (const std::wstring& usual : {interface_name, registration, std::wstring(L" = 0x00000000")}) {
      if (const std::size_t at = call.find(usual); at != std::wstring::npos) call.erase(at, usual.size());
    }
    if (!call.starts_with(L"Create(")) text += std::string(call.begin(), call.end()) + "; ";
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

// What the tour does not show.
TEST_F(Client, RequestsSendTheirCallsAndSaySo) {
  const auto check = [this](const Request& request, std::wstring recorded, std::wstring recorded_after, std::wstring call,
                            Answers answers, std::string thrown, std::string sent, std::string log) {
    SCOPED_TRACE(log);
    standins::ClearSecurityCenter();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, kModuleKey);
    log_.clear();
    const std::wstring value = call.substr(0, call.find(L'.'));
    if (recorded != kNoName) RecordName(value, recorded);
    standins::SecurityCenterCalls().Script(call, answers);
    EXPECT_EQ(thrown, test::Thrown(request));
    EXPECT_EQ(sent, Sent(value + L"."));
    EXPECT_EQ(log, Log());
    EXPECT_EQ(recorded_after, RecordedName(value));
  };
  // Security Center forgot the product: it is registered and the update repeated, once.
  const auto update_off = [] { update_as(kOff, SignatureStatus{2}); };
  check(update_off, kName, kName, L"IWscASStatus.Register", {}, "nothing",
        "UpdateStatus(1, 0) = 0x80070002; Register(); UpdateStatus(1, 0); ",
        "1 Updating struct IWscASStatus; 3 Not registered, registering...; 1 Registering struct IWscASStatus; "
        "1 Register succeeded: 0x00000000; 1 UpdateStatus succeeded: 0x00000000; ");
  const auto update_on = [] { update_fw(kOn); };
  check(update_on, kName, kName, L"IWscFWStatus.UpdateStatus", {L"forever 0x80070002"}, "error 80070002 WSC UpdateStatus: FW",
        "UpdateStatus(0) = 0x80070002; Register(); UpdateStatus(0) = 0x80070002; ",
        "3 Not registered, registering...; 1 Registering struct IWscFWStatus; 1 Register succeeded: 0x00000000; ");
  check(register_as, kNoName, kName, L"IWscASStatus.Register", {L"0x8000000a", L"0x8000000a", L"0x00000001"}, "nothing",
        "Register() = 0x8000000a x2; Register() = 0x00000001; ",
        "1 Registering struct IWscASStatus; 2 wsc pending: 0; 1 Register succeeded: 0x00000001; ");
  EXPECT_EQ(std::vector<DWORD>(2, 50), sleeps_) << "before each repeat of what was pending";
}

TEST_F(Client, PendingForeverEndsAfter18000Repeats) {
  int calls = 0;
  const log::Tag tag("wsc");
  EXPECT_EQ(E_PENDING, call_while_pending(tag, [&] { return ++calls, E_PENDING; }));
  EXPECT_EQ(18001, calls) << "one call and 18,000 repeats";
  EXPECT_EQ(std::vector<DWORD>(18000, 50), sleeps_);
  EXPECT_EQ(1u + 180u, log_.lines().size());
  EXPECT_TRUE(Log().ends_with("2 wsc pending: 17900; 5 wsc still pending; "));
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
  EXPECT_EQ("", Log());
  for (LONG* const failing : {&refusal, &refusal_of_key}) {
    *failing = ERROR_ACCESS_DENIED;
    isv_client<IWscFWStatus>::write_registered_name();
    EXPECT_EQ("4 cannot write registered name; ", Log());
    *failing = 0;
    log_.clear();
  }
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

TEST_F(Client, DefenderIsLeftAloneWhenSecurityCenterRefuses) {
  const test::PretendedWindows windows(6, 1, 1);
  const struct {
    void (*request)();
    const wchar_t* refused;
  } cases[] = {{[] { update_av(kOn, kFresh); }, L"IWscAVStatus.UpdateStatus"},
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
