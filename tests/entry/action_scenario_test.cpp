// Whole runs of the installed host for what Security Center asks of the suite, judged by its exit code, by what the suite's own
// components then know and by the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/format_message.h"
#include "control/av_manager_control.h"
#include "control/firewall_control.h"
#include "control/installation_control.h"
#include "control/installer_control.h"
#include "support/installed_suite.h"

namespace crv {
namespace {

using standins::Provider;
using testing::ElementsAre;

class ActionScenario : public testing::Test {
 protected:
  ActionScenario() { Clear(); }
  ~ActionScenario() override { Clear(); }

  void Clear() const {
    standins::ClearAvManager();
    standins::ClearFirewall();
    standins::ClearInstaller();
    DeleteFileW(standins::RebootMarker().c_str());
    standins::CreateInstallationFiles(folder_, data_folder_, setup_, folder_ + L"\\corvid_installer.exe", L"New_1");
    standins::RegisterInstallation(standins::kCurrentProduct, folder_, data_folder_, setup_);
    test::DeleteLogFile();
  }

  // The result and the records behind the first, which names the command line.
  void ExpectRun(const std::wstring& tail, DWORD result, const std::vector<std::string>& log) const {
    SCOPED_TRACE(testing::PrintToString(tail));
    test::HostRun run = test::RunHost(tail);
    EXPECT_EQ(result, run.result);
    ASSERT_FALSE(run.log.empty());
    EXPECT_EQ(ToUtf8(L"info wsc: wsc started: '\"" + folder_ + L"\\wsc_proxy.exe\" " + tail + L"'"), run.log.front());
    run.log.erase(run.log.begin());
    EXPECT_EQ(log, run.log);
  }

  std::wstring FirstRun(const std::wstring& code) const {
    return L"\"" + setup_ + L"\\instup.exe\" /instop:update_setup /wait = 0x" + code;
  }
  std::wstring SecondRun(const std::wstring& folder, const std::wstring& code) const {
    return L"\"" + setup_ + folder + L"\\instup.exe\" /instop:update_vps_and_program /wait = 0x" + code;
  }

  const std::wstring folder_ = test::SuiteFolder();
  const std::wstring setup_ = folder_ + L"\\setup";
  const std::wstring data_folder_ =
      standins::RebootMarker().substr(0, standins::RebootMarker().find(L"\\Persistent Data")) + L"\\Corvid";
};

TEST_F(ActionScenario, EnableLetsEveryProviderRunBeforeAnUpdate) {
  standins::WriteProviders({{L"a", 0}, {L"b", 2}, {L"c", 1}});
  ExpectRun(L"/av /enable /update", 0, {"info wsc: wsc starting providers", "info wsc: Updating AV."});
  EXPECT_THAT(standins::ReadProviders(), ElementsAre(Provider{L"a", 1}, Provider{L"b", 1}, Provider{L"c", 1}));
  EXPECT_EQ(L"CavmStop() = 0x00000000", standins::AvManagerCalls().Journal().back());
}

TEST_F(ActionScenario, UpdateRunsTheInstallerTwiceAndGivesTheCodeOfTheRunThatFails) {
  standins::ScriptInstaller(standins::kUpdateSetup, {.duration = 200, .new_directory = L"New_2"});
  standins::ScriptInstaller(standins::kUpdateProgram, {.leave_reboot = true});
  ExpectRun(L"/av /update /upgrade", 0, {"info wsc: Updating AV.", "info wsc: Upgrading AV."});
  EXPECT_THAT(standins::InstallerRuns(), ElementsAre(FirstRun(L"00000000"), SecondRun(L"\\New_2", L"00000000")));
  standins::ClearInstaller();
  standins::ScriptInstaller(standins::kUpdateProgram, {.exit_code = 0xC0000005});
  ExpectRun(L"/av /update", 0xC0000005, {"info wsc: Updating AV.", "error wsc: run: setup run failed (code 0xc0000005)"});
  standins::ClearInstaller();
  standins::ScriptInstaller(standins::kUpdateSetup, {.exit_code = 3});
  ExpectRun(L"/av /update", 3, {"info wsc: Updating AV.", "error wsc: run: setup run failed (code 0x00000003)"});
  EXPECT_THAT(standins::InstallerRuns(), ElementsAre(FirstRun(L"00000003")));
}

TEST_F(ActionScenario, TheFirewallIsStarted) {
  ExpectRun(L"/fw /enable", 0, {"info wsc: Starting FW."});
  EXPECT_TRUE(standins::FirewallIsOn());
  standins::FirewallCalls().Script(L"Firewall.Start", {L"0x80070005"});
  ExpectRun(L"/fw /enable", 0x80070005, {"info wsc: Starting FW.", "error wsc: run: start firewall error (code 0x80070005)"});
}

}  // namespace
}  // namespace crv
