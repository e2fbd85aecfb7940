#include "root/service_control.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

constexpr const wchar_t* kName = L"crv_\x017E";
const std::wstring kServiceKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\") + kName;

// The service's registry key as text: "ErrorControl Start Type", "none", or "key" for one without these values.
std::string Key() {
  HKEY key = nullptr;
  if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kServiceKey.c_str(), &key) != 0) return "none";
  std::string text;
  for (const wchar_t* value : {L"ErrorControl", L"Start", L"Type"}) {
    DWORD number = 0, size = sizeof(number);
    if (SHGetValueW(key, nullptr, value, nullptr, &number, &size) == 0) text += std::to_string(number) + " ";
  }
  RegCloseKey(key);
  return text.empty() ? "key" : text;
}

// Below a volatile key no other can be made.
bool IsVolatile(const std::wstring& path) {
  HKEY key = nullptr;
  const LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, (path + L"\\child").c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                         KEY_READ, nullptr, &key, nullptr);
  if (key) RegCloseKey(key);
  return result == ERROR_CHILD_MUST_BE_VOLATILE;
}

// Sleeping takes no time. The registry is the test's own.
class ServiceControl : public testing::Test {
 protected:
  ServiceControl() { SHSetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services", L"", REG_SZ, L"", 2); }
  bool Start(std::uint32_t timeout) { return ControlServiceAndWait(kName, SERVICE_START, kControlStart, 2, 4, timeout); }
  bool Stop(std::uint32_t timeout) { return ControlServiceAndWait(kName, SERVICE_STOP, SERVICE_CONTROL_STOP, 3, 1, timeout); }

  test::RunningServices services_;
  std::string key_;  // at the time of the request, and at the last sleep
  bool denied_ = false;
  bool created_meanwhile_ = false;  // somebody else makes the service's key just before the product does

 private:
  test::RedirectedHive hive_;
  test::ImportFake<decltype(RegOpenKeyExW)> open_{
      "advapi32.dll", "RegOpenKeyExW",
      [this](auto real, HKEY root, const wchar_t* subkey, DWORD options, REGSAM access, HKEY* key) {
        if (subkey != kServiceKey) return real(root, subkey, options, access, key);
        EXPECT_TRUE(access & KEY_WOW64_32KEY);
        return denied_ ? LSTATUS{ERROR_ACCESS_DENIED} : real(root, subkey, options, access, key);
      }};
  test::ImportFake<decltype(RegCreateKeyExW)> create_{
      "advapi32.dll", "RegCreateKeyExW",
      [this](auto real, HKEY root, const wchar_t* subkey, DWORD zero, auto name, DWORD options, REGSAM access, auto... rest) {
        EXPECT_TRUE(subkey != kServiceKey || access == (KEY_SET_VALUE | KEY_WOW64_32KEY));
        if (std::exchange(created_meanwhile_, false)) SHSetValueW(HKEY_LOCAL_MACHINE, subkey, L"installed", REG_SZ, L"", 2);
        return real(root, subkey, zero, name, options, access, rest...);
      }};
  test::ImportFake<decltype(StartServiceW)> start_{"advapi32.dll", "StartServiceW", [this](auto real, auto... arguments) {
                                                     key_ = Key() + (IsVolatile(kServiceKey) ? "volatile" : "");
                                                     HKEY key = nullptr;
                                                     RegCreateKeyExW(HKEY_LOCAL_MACHINE, (kServiceKey + L"\\Enum\\0").c_str(), 0,
                                                                     nullptr, REG_OPTION_VOLATILE, KEY_READ, nullptr, &key,
                                                                     nullptr);
                                                     RegCloseKey(key);
                                                     return real(arguments...);
                                                   }};
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto, DWORD time) {
                                             EXPECT_EQ(100u, time);
                                             key_ += "| " + Key();
                                           }};
};

TEST_F(ServiceControl, AFailureNamesTheServiceAndLeavesNothingBehind) {
  services_.States({6});  // neither running nor stopped
  services_.Fail("control", ERROR_ACCESS_DENIED);
  EXPECT_EQ("error 00000005 Unable to send control code to the service 'crv_\xC5\xBE'!", test::Thrown([&] { Stop(200); }));
  EXPECT_EQ("none", Key());
}

TEST_F(ServiceControl, RequestsOnceAndPollsInOrder) {
  const struct {
    const char* name;
    bool start;
    std::uint32_t timeout;
    std::vector<DWORD> states;  // that a control reports among them
    bool expected;
    std::string calls;  // behind the opening; the polls are the queries at the end
  } cases[] = {
      {"start without waiting", true, 0, {1}, true, "query start "},
      {"start-pending", true, 1000, {2, 2, 4}, true, "query x3 "},
      {"the time-out is reached", true, 300, {1, 2, 2, 4}, false, "query start query x3 "},
      {"just before the time-out", true, 301, {1, 2, 2, 4}, true, "query start query x3 "},
      {"stopped at once", false, 1, {4, 1}, true, "query control 1 "},
      {"stopping", false, 200, {4, 3, 1}, true, "query control 1 query "},
      {"stop-pending", false, 1, {3, 1}, false, "query x2 "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    services_.States(c.states);
    EXPECT_EQ(c.expected, c.start ? Start(c.timeout) : Stop(c.timeout));
    EXPECT_EQ((c.start ? "crv_~/14 " : "crv_~/24 ") + c.calls, services_.TakeCalls());
  }
  services_.States({1});
  services_.Fail("start", ERROR_SERVICE_ALREADY_RUNNING);
  EXPECT_TRUE(Start(0));
}

TEST_F(ServiceControl, MissingKeyExistsForTheRequestOnly) {
  services_.States({1});
  EXPECT_FALSE(Start(100));
  EXPECT_EQ("1 3 16 volatile| none", key_);
  created_meanwhile_ = true;
  EXPECT_FALSE(Start(100));
  EXPECT_EQ("key| key", key_);
  EXPECT_EQ("key", Key());

  denied_ = true;  // not missing
  EXPECT_FALSE(Start(100));
  EXPECT_EQ("key", Key());
}

}  // namespace
}  // namespace crv::root
