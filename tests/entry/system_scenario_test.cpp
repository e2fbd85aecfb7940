// Whole runs of the installed host on machines whose services, driver or Windows version are not the usual ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <shlwapi.h>

#include <future>

#include "wscapi/control.h"
#include "driver/control.h"
#include "security_center/control.h"
#include "service/control.h"
#include "wmi/control.h"
#include "root/file_version.h"
#include "support/installed_suite.h"
#include "wsc/product.h"

namespace crv {
namespace {

using standins::kCenterService;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t kRegisterFirewall[] = L"/svc /register /firewall";

// Wine's Windows version for the host, for the length of a scope.
class HostWindowsVersion {
 public:
  explicit HostWindowsVersion(const std::wstring& version) {
    const DWORD size = static_cast<DWORD>((version.size() + 1) * sizeof(wchar_t));
    EXPECT_EQ(0u, SHSetValueW(HKEY_CURRENT_USER, kKey, L"Version", REG_SZ, version.c_str(), size));
  }
  ~HostWindowsVersion() { SHDeleteKeyW(HKEY_CURRENT_USER, kKey); }

 private:
  static constexpr wchar_t kKey[] = L"Software\\Wine\\AppDefaults\\wsc_proxy.exe";
};

class SystemScenario : public testing::Test {
 protected:
  SystemScenario() { MakeHealthy(); }
  ~SystemScenario() override { MakeHealthy(); }

  static void MakeHealthy() {
    standins::ClearSecurityCenter();
    standins::ClearChanges();
    standins::ClearWmi();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, wsc::kModuleKey);
    test::DeleteLogFile();
    standins::MakeServiceHealthy(kCenterService);
  }

  static void StopAndDisable() {
    standins::RequestStop(kCenterService);
    EXPECT_TRUE(standins::WaitForState(kCenterService, SERVICE_STOPPED));
    standins::SetStartType(kCenterService, SERVICE_DISABLED);
  }

  const HostWindowsVersion windows_{L"win10"};
};

TEST_F(SystemScenario, ADisabledSecurityCenterIsWaitedForUntilSomebodyStartsIt) {
  StopAndDisable();
  std::future<test::HostRun> host = std::async(std::launch::async, [] { return test::RunHost(kRegisterFirewall); });
  for (int pauses = 0; pauses < 1000 && !standins::SomebodyListens(); ++pauses) Sleep(20);
  standins::RequestNotifications(3, 0);  // changes of something else
  EXPECT_EQ(std::future_status::timeout, host.wait_for(std::chrono::milliseconds(300)));
  standins::SetStartType(kCenterService, SERVICE_DEMAND_START);
  standins::RequestStart(kCenterService);
  const test::HostRun run = host.get();
  EXPECT_EQ(0u, run.result);
  EXPECT_THAT(run.log,
              ElementsAre(HasSubstr("wsc started"), "info wsc: Registering struct IWscFWStatus", "debug wsc: wscsvc state 4",
                          "info wsc: service state at the end of wait is started", "info wsc: Register succeeded: 0x00000000"));
  EXPECT_FALSE(standins::SomebodyListens());
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
  const HostWindowsVersion windows(L"winxp");
  StopAndDisable();  // which the way through WMI does not care about
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
  EXPECT_THAT(standins::SecurityCenterCalls().Journal(), IsEmpty());

  EXPECT_EQ(0u, test::RunHost(L"/svc /unregister /antivirus /antispyware /firewall").result);
  EXPECT_THAT(standins::WmiInstances(), IsEmpty());
}

}  // namespace
}  // namespace crv
