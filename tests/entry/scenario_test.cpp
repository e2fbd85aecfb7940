// Whole runs of the installed host, judged by its exit code, by what Security Center then knows and by the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control/log_control.h"
#include "control/security_center_control.h"
#include "control/service_control_panel.h"
#include "support/installed_suite.h"
#include "wsc/product.h"

#include <shlwapi.h>

namespace crv {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Scenario : public testing::Test {
 protected:
  Scenario() {
    Clear();
    standins::MakeServiceHealthy(standins::kCenterService);
  }
  ~Scenario() override { Clear(); }

  static void Clear() {
    standins::ClearSecurityCenter();
    standins::ClearLogScript();
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, wsc::kModuleKey);
    test::DeleteLogFile();
  }
};

TEST_F(Scenario, EveryWindowsVersionWithTheComClassIsServed) {
  for (const wchar_t* version : {L"win7", L"win8", L"win10"}) {
    SCOPED_TRACE(testing::Message() << version);
    const test::HostWindowsVersion windows(version);
    Clear();
    EXPECT_EQ(0u, test::RunHost(L"/svc /update /antivirus /antispyware /firewall /state:on /signatures:up_to_date").result);
    for (const wchar_t* kind : {L"IWscAVStatus", L"IWscASStatus", L"IWscFWStatus"}) {
      const auto product = standins::ReadProduct(kind);
      ASSERT_TRUE(product);
      EXPECT_EQ(L"Corvid Antivirus", product->name);
      EXPECT_EQ(0, _wcsicmp((test::SuiteFolder() + L"\\wsc_proxy.exe").c_str(), product->path.c_str())) << "the registered path";
      EXPECT_EQ(0u, product->state);
    }
  }
}

// The journal without the classes' creation, without paths and names, and without what was answered.
std::vector<std::string> SentCalls() {
  std::vector<std::string> calls;
  for (const std::wstring& line : standins::Calls()) {
    const std::string call(line.begin(), line.begin() + line.find(L" = "));
    if (call.find(".Create(") == std::string::npos) calls.push_back(call.substr(0, call.find("(\"")));
  }
  return calls;
}

TEST_F(Scenario, EachRequestReachesTheNamedProductsInTheirOrder) {
  const struct {
    const wchar_t* tail;
    std::vector<std::string> calls;
  } cases[] = {
      {L"/svc /register /firewall /antispyware", {"IWscASStatus.Register", "IWscFWStatus.Register"}},
      {L"/svc /unregister /register:no /antivirus", {"IWscAVStatus.Register"}},
      {L"/svc /update /firewall /antivirus /state:snoozed /signatures:out_of_date",
       {"IWscAVStatus.UpdateStatus(2, 0)", "IWscFWStatus.UpdateStatus(2)"}},
      {L"/svc /unregister /update /antispyware /state:off /signatures:up_to_date", {"IWscASStatus.UpdateStatus(1, 1)"}},
      {L"/svc /unregister /antispyware /antivirus", {"IWscAVStatus.Unregister()", "IWscASStatus.Unregister()"}},
      {L"/svc /unregister /firewall", {"IWscFWStatus.Unregister()"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::size_t before = SentCalls().size();
    EXPECT_EQ(0u, test::RunHost(c.tail).result);
    const std::vector<std::string> calls = SentCalls();
    EXPECT_EQ(c.calls, std::vector<std::string>(calls.begin() + before, calls.end()));
  }
}

TEST_F(Scenario, TheLogTellsTheRunFromItsCommandLineOn) {
  const test::HostRun run = test::RunHost(L"/svc /register /firewall");
  EXPECT_EQ(0u, run.result);
  EXPECT_THAT(run.log, ElementsAre(HasSubstr("info wsc: wsc started: '\""), "info wsc: Registering struct IWscFWStatus",
                                   "info wsc: Register succeeded: 0x00000000"));
  EXPECT_THAT(run.log.front(), HasSubstr("\\wsc_proxy.exe\" /svc /register /firewall'"));
}

TEST_F(Scenario, WrongRequestsEndWithTheirCodeAndNameTheStep) {
  struct Case {
    const wchar_t* tail;
    DWORD result;
    const char* text;
  };
  const Case cases[] = {
      {L"", 87, "run: run: \""},
      {L"svc", 87, "run: run: \""},
      {L"/svc", 160, "run: bad action (code 0x000000a0)"},
      {L"/svc /update", 160, "run: no product specified (code 0x000000a0)"},
      {L"/svc /update /antivirus /state:ON /signatures:up_to_date", 160, "run: to_prod_state ON (code 0x000000a0)"},
      {L"/as", 0xFFFFFFFF, "unsupported cmdline options: \""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::HostRun run = test::RunHost(c.tail);
    EXPECT_EQ(c.result, run.result);
    ASSERT_THAT(run.log, SizeIs(2));
    EXPECT_THAT(run.log[1], HasSubstr(c.text));
  }
  EXPECT_THAT(standins::Calls(), IsEmpty()) << "nothing was sent";
}

TEST_F(Scenario, ARecoveringCentreIsWaitedForAndAFailingOneReported) {
  standins::Script(L"IWscFWStatus.UpdateStatus", {L"0x8000000a", L"0x8000000a", L"ok", L"0x80070005"});
  EXPECT_EQ(0u, test::RunHost(L"/svc /update /firewall /state:off").result);
  const test::HostRun failing = test::RunHost(L"/svc /update /firewall /state:on");
  EXPECT_EQ(0x80070005u, failing.result);
  EXPECT_THAT(failing.log.back(), HasSubstr("run: WSC UpdateStatus: FW (code 0x80070005)"));
  EXPECT_EQ(1u, standins::ReadProduct(L"IWscFWStatus")->state) << "the state of the first run stands";
}

TEST_F(Scenario, ALogLibraryThatFailsOrRefusesNeverCostsTheResult) {
  standins::ScriptLog({.no_logger = true});
  const test::HostRun silent = test::RunHost(L"/svc /register /firewall");
  EXPECT_EQ(0u, silent.result);
  EXPECT_THAT(silent.log, IsEmpty());
  standins::ClearLogScript();
  standins::ScriptLog({.throw_from = L"open"});
  const test::HostRun thrown = test::RunHost(L"/svc /unregister /firewall");
  EXPECT_EQ(31u, thrown.result) << "an exception of the log library crossed into the module and met the barrier";
  standins::ScriptLog({.throw_from = L"all"});
  EXPECT_EQ(31u, test::RunHost(L"/svc /unregister /firewall").result);
  EXPECT_TRUE(standins::ReadProduct(L"IWscFWStatus")) << "neither run came as far as Security Center";
}

TEST_F(Scenario, AMissingComClassIsReportedWithItsCode) {
  const std::wstring library = test::SuiteFolder() + L"\\security_center.dll";
  ASSERT_TRUE(MoveFileW(library.c_str(), (library + L".away").c_str()));
  const test::HostRun run = test::RunHost(L"/svc /register /antivirus");
  EXPECT_TRUE(MoveFileW((library + L".away").c_str(), library.c_str()));
  EXPECT_NE(0u, run.result & 0x80000000) << "an HRESULT";
  EXPECT_THAT(run.log.back(), HasSubstr("CoCreateInstance CLSID_WscIsv: "));
}

TEST_F(Scenario, ACommandLineOfTheSystemsMaximumIsTakenWhole) {
  const std::wstring head = L"/svc /register /firewall /x:";
  const std::size_t program = test::SuiteFolder().size() + std::wcslen(L"\\wsc_proxy.exe") + 3;
  const test::HostRun run = test::RunHost(head + std::wstring(32766 - program - head.size(), L'x'));
  EXPECT_EQ(0u, run.result);
  ASSERT_FALSE(run.log.empty());
  EXPECT_GT(run.log.front().size(), 32766u);
}

}  // namespace
}  // namespace crv
