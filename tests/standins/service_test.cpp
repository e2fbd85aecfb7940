#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control/registry.h"
#include "control/service_control_panel.h"
#include "root/scoped_handle.h"
#include "standins/child.h"
#include "support/thrown.h"

namespace crv::test {
namespace {

using namespace standins;
using testing::HasSubstr;
using testing::StartsWith;

constexpr wchar_t kName[] = L"crv_standin_service";
constexpr DWORD kAge = 600'000;  // ms: longer than any test waits

class Service : public testing::Test {
 protected:
  Service() {
    RemoveService(kName);
    InstallService(kName, OwnFolder() + kServiceProgram, SERVICE_DEMAND_START);
  }
  ~Service() override {
    RemoveService(kName);
    EXPECT_FALSE(FindService(kName));
    EXPECT_FALSE(registry::KeyExists(std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\") + kName));
    EXPECT_FALSE(registry::KeyExists(std::wstring(kServicesKey) + L"\\" + kName));
  }

  void StartAndReach(DWORD state) {
    RequestStart(kName);
    EXPECT_TRUE(WaitForState(kName, state)) << "state " << FindService(kName)->state;
  }
  static DWORD ProcessId() {
    const root::ScopedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const root::ScopedService service(OpenServiceW(manager.get(), kName, SERVICE_QUERY_STATUS));
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    EXPECT_TRUE(QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &needed));
    return status.dwProcessId;
  }
};

TEST_F(Service, StartsAndStopsAndIsAskedTwiceWithoutHarm) {
  EXPECT_EQ(DWORD{SERVICE_STOPPED}, FindService(kName)->state);
  StartAndReach(SERVICE_RUNNING);
  StartAndReach(SERVICE_RUNNING);
  RequestStop(kName);
  EXPECT_TRUE(WaitForState(kName, SERVICE_STOPPED));
  RequestStop(kName);
  EXPECT_EQ(DWORD{NO_ERROR}, FindService(kName)->exit_code);
}

TEST_F(Service, StaysInStartPendingUntilItsTimeOrUntilItIsLetGo) {
  const ServiceBehaviour behaviours[] = {{.start = kStartHang}, {.start = kStartSlow, .start_delay = kAge}};
  for (const ServiceBehaviour& behaviour : behaviours) {
    Behave(kName, behaviour);
    StartAndReach(SERVICE_START_PENDING);
    EXPECT_FALSE(WaitForState(kName, SERVICE_RUNNING, 100));
    Behave(kName, {});
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, FindService(kName)->state);
    RequestStop(kName);
    EXPECT_TRUE(WaitForState(kName, SERVICE_STOPPED));
  }
  Behave(kName, {.start = kStartSlow, .start_delay = 50});
  StartAndReach(SERVICE_RUNNING);
}

TEST_F(Service, RefusesToStartInEachOfItsWays) {
  Behave(kName, {.start = kStartRefuse, .start_error = 1234});
  StartAndReach(SERVICE_STOPPED);
  EXPECT_EQ(1234u, FindService(kName)->exit_code);
  Behave(kName, {.start = kStartDie});
  EXPECT_EQ("error 0000041d cannot start the service crv_standin_service", Thrown([] { RequestStart(kName); }));
  Behave(kName, {});
  SetStartType(kName, SERVICE_DISABLED);
  EXPECT_EQ("error 00000422 cannot start the service crv_standin_service", Thrown([] { RequestStart(kName); }));
  EXPECT_EQ(DWORD{SERVICE_STOPPED}, FindService(kName)->state);
}

TEST_F(Service, RefusesToStopWhileItIsTold) {
  StartAndReach(SERVICE_RUNNING);
  Behave(kName, {.refuse_stop = true});
  EXPECT_EQ("error 0000041c cannot stop the service crv_standin_service", Thrown([] { RequestStop(kName); }));
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, FindService(kName)->state);
  Behave(kName, {.stop_delay = kAge});
  RequestStop(kName);
  EXPECT_EQ(DWORD{SERVICE_STOP_PENDING}, FindService(kName)->state);
  EXPECT_FALSE(WaitForState(kName, SERVICE_STOPPED, 100));
  Behave(kName, {});
  EXPECT_TRUE(WaitForState(kName, SERVICE_STOPPED));
}

TEST_F(Service, IsMadeHealthyFromEveryState) {
  Behave(kName, {.start = kStartHang, .refuse_stop = true});
  StartAndReach(SERVICE_START_PENDING);
  MakeServiceHealthy(kName);
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, FindService(kName)->state);
  EXPECT_EQ(DWORD{SERVICE_AUTO_START}, FindService(kName)->start_type);
  SetStartType(kName, SERVICE_DISABLED);
  Behave(kName, {.stop_delay = kAge});
  RequestStop(kName);
  MakeServiceHealthy(kName);
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, FindService(kName)->state);
  const DWORD killed = ProcessId();
  const root::ScopedKernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, killed));
  EXPECT_TRUE(TerminateProcess(process.get(), 1));
  WaitForSingleObject(process.get(), 10'000);
  MakeServiceHealthy(kName);
  EXPECT_EQ(DWORD{SERVICE_RUNNING}, FindService(kName)->state);
  EXPECT_NE(killed, ProcessId());
}

// What a person does with it.
class CentreService : public Service {
 protected:
  Ended Run(const std::wstring& words) {
    return Child(folder_.path(), L"\"" + OwnFolder() + L"..\\standins\\centre.exe\" service " + kName + L" " + words).Wait();
  }

  TemporaryFolder folder_;
};

TEST_F(CentreService, SaysHowTheServiceIsAndBehaves) {
  const struct {
    const wchar_t* words;
    const char* row;
  } steps[] = {{L"start", "running  on demand   normal"},
               {L"refuse-stop", "running  on demand   refuses to stop"},
               {L"slow 250", "running  on demand   starts in 250 ms, refuses to stop"},
               {L"refuse 0x424", "running  on demand   ends at start with 1060, refuses to stop"},
               {L"normal", "running  on demand   normal"}};
  for (const auto& step : steps) {
    EXPECT_EQ(0u, Run(step.words).code);
    EXPECT_THAT(Run(L"status").output, HasSubstr(std::string("\r\ncrv_standin_service  ") + step.row + "\r\n")) << step.words;
  }
  EXPECT_THAT(Run(L"dance").output, StartsWith("centre: a service cannot be told 'dance'; it can: status start"));
  EXPECT_THAT(Run(L"slow").output, StartsWith("centre: 'slow' takes one number\r\n"));
  EXPECT_THAT(Run(L"slow soon").output, StartsWith("centre: 'soon' is no number\r\n"));
}

TEST_F(CentreService, IsEnabledAndStartedBySomebodyElseLater) {
  SetStartType(kName, SERVICE_DISABLED);
  EXPECT_EQ(0u, Run(L"enable-and-start-after 100").code);
  EXPECT_TRUE(WaitForState(kName, SERVICE_RUNNING));
  EXPECT_EQ(DWORD{SERVICE_AUTO_START}, FindService(kName)->start_type);
}

}  // namespace
}  // namespace crv::test
