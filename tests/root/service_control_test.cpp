#include "root/service_control.h"

#include <gtest/gtest.h>
#include <shlwapi.h>
#include <windows.h>

#include <set>
#include <vector>

#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

constexpr const wchar_t* kName = L"crv_\x017E";
const std::wstring kServiceKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\") + kName;
constexpr DWORD kServiceType = 0x10;
const SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(0x51), kService = reinterpret_cast<SC_HANDLE>(0x52);

// The service's registry key as text: "ErrorControl Start Type", "none", or "key" for one without these values.
std::string Key() {
  std::string text;
  for (const wchar_t* value : {L"ErrorControl", L"Start", L"Type"}) {
    DWORD number = 0, size = sizeof(number), type = 0;
    const LSTATUS result = SHGetValueW(HKEY_LOCAL_MACHINE, kServiceKey.c_str(), value, &type, &number, &size);
    if (result == 0 && type == REG_DWORD) text += std::to_string(number) + " ";
  }
  if (!text.empty()) return text;
  HKEY key = nullptr;
  if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kServiceKey.c_str(), &key) != 0) return "none";
  RegCloseKey(key);
  return "key";
}

void MakeKey(const std::wstring& path) {
  HKEY key = nullptr;
  EXPECT_EQ(0, RegCreateKeyW(HKEY_LOCAL_MACHINE, path.c_str(), &key));
  RegCloseKey(key);
}

// A Service Control Manager that answers as told and a registry of its own.
class ServiceControl : public testing::Test {
 protected:
  ~ServiceControl() override { EXPECT_TRUE(held_.empty()); }

  std::string failing_;            // the function that fails
  DWORD code_ = 0;
  std::vector<DWORD> states_{4};   // what queries report in turn; the last one stays
  DWORD controlled_ = 0;           // the state that ControlService reports
  std::string asked_;              // requests and waits in order
  std::string key_;                // the service's key at the time of the request, and at the last sleep
  bool slept_ = false;

 private:
  bool Fails(const char* function) {
    SetLastError(code_);
    return failing_ == function;
  }
  void Trace(const std::string& call) {
    asked_ += call + ";";
  }

  test::RedirectedHive hive_;
  std::set<SC_HANDLE> held_;
  test::ImportFake<decltype(OpenSCManagerW)> manager_{
      "advapi32.dll", "OpenSCManagerW", [this](auto, auto machine, std::wstring database, DWORD access) -> SC_HANDLE {
        EXPECT_EQ(nullptr, machine);
        EXPECT_EQ(L"ServicesActive", database);
        EXPECT_EQ(1u, access);
        return Fails("manager") ? nullptr : *held_.insert(kManager).first;
      }};
  test::ImportFake<decltype(OpenServiceW)> service_{
      "advapi32.dll", "OpenServiceW", [this](auto, SC_HANDLE manager, std::wstring name, DWORD access) -> SC_HANDLE {
        EXPECT_EQ(kManager, manager);
        EXPECT_EQ(kName, name);
        Trace("open " + std::to_string(access));
        return Fails("service") ? nullptr : *held_.insert(kService).first;
      }};
  test::ImportFake<decltype(CloseServiceHandle)> close_{"advapi32.dll", "CloseServiceHandle", [this](auto, SC_HANDLE handle) -> BOOL {
                                                          EXPECT_EQ(1u, held_.erase(handle));
                                                          SetLastError(0xBAD);
                                                          return TRUE;
                                                        }};
  test::ImportFake<decltype(QueryServiceStatus)> query_{
      "advapi32.dll", "QueryServiceStatus", [this](auto, SC_HANDLE, SERVICE_STATUS* status) -> BOOL {
        if (Fails("query") || (slept_ && Fails("poll"))) return FALSE;
        status->dwServiceType = kServiceType;
        status->dwCurrentState = states_.front();
        if (states_.size() > 1) states_.erase(states_.begin());
        return TRUE;
      }};
  test::ImportFake<decltype(StartServiceW)> start_{"advapi32.dll", "StartServiceW",
                                                   [this](auto, SC_HANDLE, DWORD count, auto arguments) -> BOOL {
                                                     EXPECT_EQ(0u, count);
                                                     EXPECT_EQ(nullptr, arguments);
                                                     Trace("start");
                                                     key_ = Key();
                                                     MakeKey(kServiceKey + L"\\Enum\\0");  // somebody's, meanwhile
                                                     return !Fails("start");
                                                   }};
  test::ImportFake<decltype(ControlService)> control_{"advapi32.dll", "ControlService",
                                                      [this](auto, SC_HANDLE, DWORD control, SERVICE_STATUS* status) -> BOOL {
                                                        Trace("control " + std::to_string(control));
                                                        key_ = Key();
                                                        status->dwCurrentState = controlled_;
                                                        return !Fails("control");
                                                      }};
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto, DWORD time) {
                                             Trace("sleep " + std::to_string(time));
                                             key_ += "| " + Key();
                                             slept_ = true;
                                           }};
  test::ImportFake<decltype(RegOpenKeyExW)> open_key_{
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, auto subkey, DWORD options, REGSAM access, HKEY* key) {
        EXPECT_TRUE(access & KEY_WOW64_32KEY);
        return real(root, subkey, options, access, key);
      }};
  test::ImportFake<decltype(RegCreateKeyExW)> create_key_{
      "advapi32.dll", "RegCreateKeyExW", [this](auto real, HKEY root, auto subkey, DWORD zero, auto key_class, DWORD options, REGSAM access, auto... rest) {
        EXPECT_TRUE(access & KEY_WOW64_32KEY);
        return Fails("key") ? ERROR_ACCESS_DENIED : real(root, subkey, zero, key_class, options, access, rest...);
      }};
};

TEST_F(ServiceControl, FailuresNameTheServiceAndLeaveNothingBehind) {
  enum { kQuery = 1, kStart = 2, kStop = 4 };  // who meets the failure
  const struct {
    const char* failing;
    DWORD code;
    const char* text;
    int met_by;
  } cases[] = {
      {"manager", 5, "00000005 Unable to open the service control manager!", kQuery | kStart | kStop},
      {"service", 1060, "00000424 Unable to open the service 'crv_\xC5\xBE'!", kQuery | kStart | kStop},
      {"query", 6, "00000006 Unable to query status of the service 'crv_\xC5\xBE'!", kQuery | kStart | kStop},
      {"poll", 1115, "0000045b Unable to query status of the service 'crv_\xC5\xBE'!", kStart | kStop},
      {"start", 1058, "00000422 Unable to start the service 'crv_\xC5\xBE'!", kStart},
      {"control", 1056, "00000420 Unable to send control code to the service 'crv_\xC5\xBE'!", kStop},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.failing);
    const auto expected = [&](int caller) { return c.met_by & caller ? std::string("error ") + c.text : "nothing"; };
    failing_ = c.failing;
    code_ = c.code;
    states_ = {5, 6};
    EXPECT_EQ(expected(kQuery), test::Thrown([] { QueryServiceState(kName); }));
    EXPECT_EQ(expected(kStart), test::Thrown([] { ControlServiceAndWait(kName, 0x10, kControlStart, 2, 4, 200); }));
    EXPECT_EQ("none", Key());
    slept_ = false;
    EXPECT_EQ(expected(kStop), test::Thrown([] { ControlServiceAndWait(kName, 0x20, 1, 3, 1, 200); }));
    EXPECT_EQ("none", Key());
    slept_ = false;
  }
}

TEST_F(ServiceControl, RequestsOnceAndPollsInOrder) {
  const std::string kPoll = "sleep 100;";
  const struct {
    const char* name;
    std::uint32_t control, timeout;
    std::vector<DWORD> states;
    DWORD controlled;
    bool expected;
    std::string asked;
  } cases[] = {
      {"start without waiting", 0, 0, {1}, 0, true, "start;"},
      {"running", 0, 1, {4}, 0, true, ""},
      {"running, not to be waited for", 0, 0, {4}, 0, true, ""},
      {"start-pending", 0, 1000, {2, 2, 4}, 0, true, kPoll + kPoll},
      {"start-pending, not to be waited for", 0, 0, {2}, 0, true, ""},
      {"the start is not the state", 0, 1, {1, 4}, 0, false, "start;" + kPoll},
      {"the time-out comes first", 0, 250, {1, 2, 2, 4}, 0, false, "start;" + kPoll + kPoll + kPoll},
      {"the time-out is reached", 0, 300, {1, 2, 2, 4}, 0, false, "start;" + kPoll + kPoll + kPoll},
      {"just before the time-out", 0, 301, {1, 2, 2, 4}, 0, true, "start;" + kPoll + kPoll + kPoll},
      {"another state passes", 0, 1000, {7, 6, 3, 1, 4}, 0, true, "start;" + kPoll + kPoll + kPoll + kPoll},
      {"stopped at once", 1, 1, {4, 4}, 1, true, "control 1;"},
      {"stopping", 1, 200, {4, 1}, 3, true, "control 1;" + kPoll},
      {"stop without waiting", 1, 0, {4}, 3, true, "control 1;"},
      {"stop-pending", 1, 1, {3, 1}, 0, false, kPoll},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    states_ = c.states;
    controlled_ = c.controlled;
    asked_ = "";
    const bool start = c.control == kControlStart;
    EXPECT_EQ(c.expected, ControlServiceAndWait(kName, start ? 0x10 : 0x20, c.control, start ? 2 : 3, start ? 4 : 1, c.timeout));
    EXPECT_EQ((start ? "open 20;" : "open 36;") + c.asked, asked_);
  }
  asked_ = "";
  states_ = {6};
  EXPECT_EQ(6u, QueryServiceState(kName));
  EXPECT_EQ("open 4;", asked_);
  states_ = {1};
  failing_ = "start";
  code_ = ERROR_SERVICE_ALREADY_RUNNING;
  EXPECT_TRUE(ControlServiceAndWait(kName, 0x10, kControlStart, 2, 4, 0));
}

TEST_F(ServiceControl, LongestWaitEndsBeforeItsCountOverflows) {
  std::uint32_t sleeps = 0;
  const test::ImportFake<decltype(Sleep)> sleep("kernel32.dll", "Sleep", [&](auto...) { ++sleeps; });
  const test::ImportFake<decltype(QueryServiceStatus)> query("advapi32.dll", "QueryServiceStatus", [&](auto, auto, auto* status) -> BOOL {
    status->dwCurrentState = SERVICE_START_PENDING;
    return sleeps <= 42949672;
  });
  EXPECT_FALSE(ControlServiceAndWait(kName, 0x10, kControlStart, 2, 4, 0xFFFFFFFF));
  EXPECT_EQ(42949672u, sleeps);
}

TEST_F(ServiceControl, MissingKeyExistsForTheRequestOnly) {
  states_ = {1};
  EXPECT_FALSE(ControlServiceAndWait(kName, 0x10, kControlStart, 2, 4, 100));
  EXPECT_EQ("1 3 16 | none", key_);
  controlled_ = 1;
  states_ = {4};
  EXPECT_TRUE(ControlServiceAndWait(kName, 0x20, 1, 3, 1, 100));
  EXPECT_EQ("1 3 16 ", key_);
  EXPECT_EQ("none", Key());
  failing_ = "key";  // nobody asks whether the key could be written
  EXPECT_TRUE(ControlServiceAndWait(kName, 0x20, 1, 3, 1, 100));
  EXPECT_EQ("none", key_);

  MakeKey(kServiceKey);
  failing_ = "";
  states_ = {1};
  EXPECT_FALSE(ControlServiceAndWait(kName, 0x10, kControlStart, 2, 4, 100));
  EXPECT_EQ("key| key", key_);
  EXPECT_EQ("key", Key());
}

// The system's own manager; every Windows has this service, which runs on demand.
TEST(RealServiceControl, StartsAndStopsAService) {
  constexpr const wchar_t* kInstaller = L"MSIServer";
  EXPECT_EQ("error 00000424 Unable to open the service 'crv_none'!", test::Thrown([] { QueryServiceState(L"crv_none"); }));
  ASSERT_EQ(DWORD{SERVICE_STOPPED}, QueryServiceState(kInstaller));
  EXPECT_TRUE(ControlServiceAndWait(kInstaller, SERVICE_START, kControlStart, SERVICE_START_PENDING, SERVICE_RUNNING, 10000));
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, QueryServiceState(kInstaller));
  EXPECT_TRUE(ControlServiceAndWait(kInstaller, SERVICE_STOP, SERVICE_CONTROL_STOP, SERVICE_STOP_PENDING, SERVICE_STOPPED, 10000));
  EXPECT_EQ(DWORD{SERVICE_STOPPED}, QueryServiceState(kInstaller));
}

}  // namespace
}  // namespace crv::root
