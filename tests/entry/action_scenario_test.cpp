// Whole runs of the installed host for what Security Center asks of the suite, judged by its exit code, by what the suite's own
// components then know and by the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/format_message.h"
#include "control/av_manager_control.h"
#include "control/firewall_control.h"
#include "control/installation_control.h"
#include "control/installer_control.h"
#include "support/installed_suite.h"

namespace crv {
namespace {

using standins::AvManagerCalls;
using standins::FirewallCalls;
using standins::Provider;
using standins::ReadProviders;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr wchar_t kFirstRun[] = L" /instop:update_setup /wait = 0x";
constexpr wchar_t kSecondRun[] = L" /instop:update_vps_and_program /wait = 0x";

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
    EXPECT_EQ("info wsc: wsc started: '" + Program() + " " + ToUtf8(tail) + "'", run.log.front());
    run.log.erase(run.log.begin());
    EXPECT_THAT(run.log, ElementsAreArray(log));
  }

  std::string Program() const { return ToUtf8(L"\"" + folder_ + L"\\wsc_proxy.exe\""); }
  std::wstring Installer(const std::wstring& directory = L"") const { return L"\"" + setup_ + directory + L"\\instup.exe\""; }

  // Takes a library of the suite away for the length of a scope.
  class Without {
   public:
    explicit Without(const std::wstring& path) : path_(path) {
      EXPECT_TRUE(MoveFileExW(path.c_str(), (path + L".gone").c_str(), MOVEFILE_REPLACE_EXISTING)) << GetLastError();
    }
    ~Without() { EXPECT_TRUE(MoveFileW((path_ + L".gone").c_str(), path_.c_str())) << GetLastError(); }

   private:
    std::wstring path_;
  };

  const std::wstring folder_ = test::SuiteFolder();
  const std::wstring setup_ = folder_ + L"\\setup";
  const std::wstring data_folder_ = standins::RebootMarker().substr(0, standins::RebootMarker().find(L"\\Persistent Data")) + L"\\Corvid";
};

TEST_F(ActionScenario, EnableLetsEveryProviderRun) {
  for (const wchar_t* const tail : {L"/av /enable", L"/as /enable"}) {
    standins::WriteProviders({{L"a", 0}, {L"b", 2}, {L"c", 1}});
    ExpectRun(tail, 0, {"info wsc: wsc starting providers"});
    EXPECT_THAT(ReadProviders(), ElementsAre(Provider{L"a", 1}, Provider{L"b", 1}, Provider{L"c", 1}));
    EXPECT_EQ(L"CavmStop() = 0x00000000", AvManagerCalls().Journal().back());
  }
}

TEST_F(ActionScenario, AnAvManagerThatFailsGivesItsCode) {
  AvManagerCalls().Script(L"CavmStart", {L"0x80070422"});
  ExpectRun(L"/av /enable", 0x80070422, {"error wsc: run: CavmStart failed (code 0x80070422)"});
  standins::WriteProviders({{L"a", 0}, {L"b", 0}});
  AvManagerCalls().Script(L"CavmProviderStart", {L"ok", L"0x1f"});
  AvManagerCalls().Script(L"CavmStop", {L"0x5"});
  ExpectRun(L"/av /enable", 31,
            {"info wsc: wsc starting providers", "error wsc: cavmstop failed 5", "error wsc: run: provider start (code 0x0000001f)"});
  EXPECT_THAT(ReadProviders(), ElementsAre(Provider{L"a", 1}, Provider{L"b", 0}));
}

TEST_F(ActionScenario, DisableIsRefused) {
  for (const wchar_t* const tail : {L"/av /disable", L"/as /disable", L"/av /disable /update"}) {
    ExpectRun(tail, 0xFFFFFFFF, {"error wsc: run: wsc disable refused (code 0xffffffff)"});
  }
  EXPECT_THAT(AvManagerCalls().Journal(), IsEmpty());
  EXPECT_THAT(standins::InstallerRuns(), IsEmpty());
}

TEST_F(ActionScenario, UpdateRunsTheInstallerTwice) {
  standins::ScriptInstaller(standins::kUpdateSetup, {.duration = 200, .new_directory = L"New_2"});
  standins::ScriptInstaller(standins::kUpdateProgram, {.leave_reboot = true});
  ExpectRun(L"/av /update /upgrade", 0, {"info wsc: Updating AV.", "info wsc: Upgrading AV."});
  EXPECT_THAT(standins::InstallerRuns(), ElementsAre(Installer() + kFirstRun + L"00000000", Installer(L"\\New_2") + kSecondRun + L"00000000"));
}

TEST_F(ActionScenario, AnUpdateThatFailsGivesTheCodeOfItsRun) {
  standins::ScriptInstaller(standins::kUpdateSetup, {.exit_code = 3});
  ExpectRun(L"/av /update", 3, {"info wsc: Updating AV.", "error wsc: run: setup run failed (code 0x00000003)"});
  EXPECT_THAT(standins::InstallerRuns(), ElementsAre(Installer() + kFirstRun + L"00000003"));
  standins::ClearInstaller();
  standins::ScriptInstaller(standins::kUpdateProgram, {.exit_code = 0xC0000005});
  ExpectRun(L"/av /update", 0xC0000005, {"info wsc: Updating AV.", "error wsc: run: setup run failed (code 0xc0000005)"});
  standins::UnregisterInstallation();
  standins::ClearInstaller();
  ExpectRun(L"/av /update", 0xFFFFFFFF, {"info wsc: Updating AV.", "error wsc: run: update program failed (code 0xffffffff)"});
  EXPECT_THAT(standins::InstallerRuns(), IsEmpty());
}

TEST_F(ActionScenario, AnUpdateWithoutSettingsRepairsThemFirst) {
  ASSERT_TRUE(DeleteFileW((setup_ + L"\\setup.ini").c_str()));
  ExpectRun(L"/av /update", 0, {"info wsc: Updating AV."});
  EXPECT_THAT(standins::InstallerRuns(), ElementsAre(Installer() + L" = 0x00000000", Installer() + kFirstRun + L"00000000",
                                                     Installer(L"\\New") + kSecondRun + L"00000000"));
}

TEST_F(ActionScenario, TheFirewallIsStarted) {
  ExpectRun(L"/fw /enable", 0, {"info wsc: Starting FW."});
  EXPECT_TRUE(standins::FirewallIsOn());
  standins::ClearFirewall();
  FirewallCalls().Script(L"Firewall.Start", {L"0x80070005"});
  ExpectRun(L"/fw /enable", 0x80070005, {"info wsc: Starting FW.", "error wsc: run: start firewall error (code 0x80070005)"});
  EXPECT_FALSE(standins::FirewallIsOn());
  EXPECT_EQ(L"crvFreeFirewall(0) = 0x00000000", FirewallCalls().Journal().back());
}

TEST_F(ActionScenario, ASuiteWithoutItsLibrariesSaysSo) {
  const Without no_manager(folder_ + L"\\cavm4h.dll");
  const Without no_firewall(folder_ + L"\\crvData.dll");
  ExpectRun(L"/av /enable", 0xFFFFFFFF, {"error wsc: run: cannot load " + ToUtf8(folder_) + "\\cavm4h.dll (code 0xffffffff)"});
  ExpectRun(L"/fw /enable", 0xFFFFFFFF, {"info wsc: Starting FW.", "error wsc: run: cannot load crvData.dll (code 0xffffffff)"});
  standins::UnregisterInstallation();
  ExpectRun(L"/as /enable", 2, {"error wsc: run: Unable to retrieve path of the program directory! (code 0x00000002)"});
}

TEST_F(ActionScenario, OtherRequestsOfTheFirewallAndTheAntiSpywareAreRefused) {
  for (const std::wstring tail : {L"/as", L"/as /update", L"/fw", L"/disable /fw"}) {
    ExpectRun(tail, 0xFFFFFFFF, {"error wsc: run: unsupported cmdline options: " + Program() + " " + ToUtf8(tail) + " (code 0xffffffff)"});
  }
}

}  // namespace
}  // namespace crv
