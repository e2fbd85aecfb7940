// Whole runs of the installed host, judged by its exit code, by what Security Center then knows and by the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/control.h"
#include "security_center/control.h"
#include "service/control.h"
#include "support/installed_suite.h"
#include "wsc/product.h"

#include <shlwapi.h>

namespace crv {
namespace {

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

// The journal without the classes' creation, without paths and names, and without what was answered.
std::vector<std::string> SentCalls() {
  std::vector<std::string> calls;
  for (const std::wstring& line : standins::SecurityCenterCalls().Journal()) {
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
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const std::size_t before = SentCalls().size();
    EXPECT_EQ(0u, test::RunHost(c.tail).result);
    const std::vector<std::string> calls = SentCalls();
    EXPECT_EQ(c.calls, std::vector<std::string>(calls.begin() + before, calls.end()));
  }
  const std::optional<standins::Product> firewall = standins::ReadProduct(L"IWscFWStatus");
  ASSERT_TRUE(firewall);
  EXPECT_EQ(L"Corvid Antivirus", firewall->name);
  EXPECT_EQ(0, _wcsicmp((test::SuiteFolder() + L"\\wsc_proxy.exe").c_str(), firewall->path.c_str()));
}

TEST_F(Scenario, ALogLibraryThatFailsOrRefusesIsSurvived) {
  standins::ScriptLog({.no_logger = true});
  EXPECT_EQ(0u, test::RunHost(L"/svc /register /firewall").result);
  for (const wchar_t* const operation : {L"open", L"all"}) {
    standins::ScriptLog({.throw_from = operation});
    EXPECT_EQ(31u, test::RunHost(L"/svc /unregister /firewall").result) << "its exception met the barrier of the module";
  }
  EXPECT_TRUE(standins::ReadProduct(L"IWscFWStatus")) << "neither run came as far as Security Center";
}

}  // namespace
}  // namespace crv
