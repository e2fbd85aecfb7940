// Whole runs of the installed host on machines whose services, driver or Windows version are not the usual ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <shlwapi.h>

#include <functional>
#include <future>

#include "control/changes_control.h"
#include "control/driver_control.h"
#include "control/security_center_control.h"
#include "control/service_control_panel.h"
#include "control/wmi_control.h"
#include "root/file_version.h"
#include "support/installed_suite.h"
#include "wsc/product.h"

namespace crv {
namespace {

using standins::kCenterService;
using standins::kDefenderService;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t kRegisterFirewall[] = L"/svc /register /firewall";
constexpr wchar_t kAntiVirusOn[] = L"/svc /update /antivirus /state:on /signatures:up_to_date";
constexpr char kRegistering[] = "info wsc: Registering struct IWscFWStatus";
constexpr char kRegistered[] = "info wsc: Register succeeded: 0x00000000";
constexpr wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Microsoft\\Windows Defender";

bool Within(DWORD limit, const std::function<bool()>& condition) {  // ms
  for (DWORD waited = 0; !condition(); waited += 20) {
    if (waited >= limit) return false;
    Sleep(20);
  }
  return true;
}

class SystemScenario : public testing::Test {
 protected:
  SystemScenario() { MakeHealthy(); }
  ~SystemScenario() override { MakeHealthy(); }

  static void MakeHealthy() {
    standins::ClearSecurityCenter();
    standins::ClearChanges();
    standins::ClearWmi();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, wsc::kModuleKey);
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, kPolicyKey);
    test::DeleteLogFile();
    standins::MakeServiceHealthy(kCenterService);
    standins::MakeServiceHealthy(kDefenderService);
  }

  static void Stop(const wchar_t* service) {
    standins::RequestStop(service);
    EXPECT_TRUE(standins::WaitForState(service, SERVICE_STOPPED));
  }

  static DWORD StateOf(const wchar_t* service) { return standins::FindService(service)->state; }

  const test::HostWindowsVersion windows_{L"win10"};
};

TEST_F(SystemScenario, AStoppedSecurityCenterIsStarted) {
  Stop(kCenterService);
  standins::SetStartType(kCenterService, SERVICE_DEMAND_START);
  standins::Behave(kCenterService, {.start = standins::kStartSlow, .start_delay = 300});
  const test::HostRun run = test::RunHost(kRegisterFirewall);
  EXPECT_EQ(0u, run.result);
  EXPECT_THAT(run.log, ElementsAre(HasSubstr("wsc started"), kRegistering, "debug wsc: wscsvc state 3",
                                   "debug wsc: wscsvc is not running, starting now", "info wsc: wsc service started successfully",
                                   kRegistered));
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, StateOf(kCenterService));
}

TEST_F(SystemScenario, ADisabledSecurityCenterIsWaitedForUntilSomebodyStartsIt) {
  Stop(kCenterService);
  standins::SetStartType(kCenterService, SERVICE_DISABLED);
  std::future<test::HostRun> host = std::async(std::launch::async, [] { return test::RunHost(kRegisterFirewall); });
  EXPECT_TRUE(Within(20'000, standins::SomebodyListens));
  standins::RequestNotifications(3, 0);  // changes of something else
  EXPECT_EQ(std::future_status::timeout, host.wait_for(std::chrono::milliseconds(300)));
  standins::SetStartType(kCenterService, SERVICE_DEMAND_START);
  standins::RequestStart(kCenterService);
  const test::HostRun run = host.get();
  EXPECT_EQ(0u, run.result);
  EXPECT_THAT(run.log, ElementsAre(HasSubstr("wsc started"), kRegistering, "debug wsc: wscsvc state 4",
                                   "info wsc: service state at the end of wait is started", kRegistered));
  EXPECT_FALSE(standins::SomebodyListens());
}

TEST_F(SystemScenario, DefenderFollowsTheSuiteOnWindows7Only) {
  EXPECT_EQ(0u, test::RunHost(kAntiVirusOn).result);
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, StateOf(kDefenderService));
  const test::HostWindowsVersion windows(L"win7");
  const test::HostRun on = test::RunHost(kAntiVirusOn);
  EXPECT_EQ(0u, on.result);
  EXPECT_EQ("info wsc: windows defender operation succeeded", on.log.back());
  EXPECT_TRUE(standins::WaitForState(kDefenderService, SERVICE_STOPPED));
  DWORD policy = 0, size = sizeof(policy);
  EXPECT_EQ(0u, SHGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey, L"DisableAntiSpyware", nullptr, &policy, &size));
  EXPECT_EQ(1u, policy);

  const test::HostRun gone = test::RunHost(L"/svc /unregister /antivirus");
  EXPECT_EQ(0u, gone.result);
  EXPECT_EQ("info wsc: windows defender operation succeeded", gone.log.back());
  EXPECT_TRUE(standins::WaitForState(kDefenderService, SERVICE_RUNNING));
  EXPECT_NE(0u, SHGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey, L"DisableAntiSpyware", nullptr, nullptr, nullptr));
}

TEST_F(SystemScenario, AnUntrustedParentIsRefusedBeforeAnythingElse) {
  struct Driver {
    Driver() { standins::LoadDriver(test::SuiteFolder() + L"\\" + standins::kDriverFile); }
    ~Driver() { standins::RemoveDriver(); }
  } driver;
  standins::Behave(standins::DriverBehaviour{.answer = 0});
  const test::HostRun run = test::RunHost(L"/svc");
  EXPECT_EQ(5u, run.result);
  EXPECT_THAT(run.log.back(),
              HasSubstr("run: not trusted start, parent pid: " + std::to_string(GetCurrentProcessId()) + " (code 0x00000005)"));
  EXPECT_EQ(GetCurrentProcessId(), standins::ReadDriverCounts().last_process);
  EXPECT_THAT(test::RunHost(L"/as").log.back(), HasSubstr("unsupported cmdline options")) << "the other modes do not ask";
  standins::Behave(standins::DriverBehaviour{.answer = 7});
  EXPECT_EQ(0u, test::RunHost(kRegisterFirewall).result);
}

TEST_F(SystemScenario, WindowsXpIsServedThroughWmi) {
  const test::HostWindowsVersion windows(L"winxp");
  Stop(kCenterService);
  standins::SetStartType(kCenterService, SERVICE_DISABLED);  // which the way through WMI does not care about
  const test::HostRun run = test::RunHost(L"/svc /update /antivirus /antispyware /firewall /state:on /signatures:up_to_date");
  EXPECT_EQ(0u, run.result);
  EXPECT_THAT(run.log, ElementsAre(HasSubstr("wsc started"), "info wsc: update_xp AntiVirusProduct",
                                   "info wsc: update_xp FirewallProduct"));
  const std::vector<standins::WmiInstance> instances = standins::WmiInstances();
  ASSERT_EQ(2u, instances.size());
  const root::FileVersion version = root::GetFileVersion(test::SuiteFolder() + L"\\wsc.dll");
  wchar_t text[24];
  _snwprintf(text, std::size(text), L"%u.%u.%u.%u", version.major, version.minor, version.build, version.revision);
  for (const standins::WmiInstance& instance : instances) {
    EXPECT_EQ(L"root\\SecurityCenter", instance.name_space);
    EXPECT_EQ(standins::WmiValue(std::wstring(text)), instance.properties.at(L"versionNumber")) << "not the host's";
  }
  EXPECT_THAT(standins::Calls(), IsEmpty());

  EXPECT_EQ(0u, test::RunHost(L"/svc /unregister /antivirus /antispyware /firewall").result);
  EXPECT_THAT(standins::WmiInstances(), IsEmpty());
  const test::HostRun again = test::RunHost(L"/svc /unregister /firewall");
  EXPECT_EQ(0x80041002u, again.result);
  EXPECT_THAT(again.log.back(), HasSubstr("run: wmi DeleteInstance (code 0x80041002)"));
}

}  // namespace
}  // namespace crv
