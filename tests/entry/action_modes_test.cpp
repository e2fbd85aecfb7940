// Which actions a request selects, and in which order they run, as far as the tour does not show it.
#include <gtest/gtest.h>
#include <windows.h>
#include <shellapi.h>

#include "firewall/control.h"
#include "entry/run.h"
#include "support/captured_log.h"
#include "support/import_fake.h"
#include "support/probed_installer.h"

namespace crv::wsc {
namespace {

constexpr char kNoFolder[] = "exception 0 wsc: run: Unable to retrieve path of the program directory! [00000002]";
constexpr char kRefused[] = "exception 0 wsc: run: wsc disable refused [ffffffff]";
constexpr char kUpdating[] = "wide 1 wsc: Updating AV.";
constexpr char kUpgrading[] = "wide 1 wsc: Upgrading AV.";

TEST(ActionModes, RunTheirActionsInTheirOrderUntilOneFails) {
  const struct {
    const wchar_t* text;
    bool installed;  // without the suite, enabling fails by its first step, which tells that it was tried
    std::uint32_t result;
    std::vector<std::string> log;  // behind the two lines of every run
  } cases[] = {
      {L"host /av /enable /disable", false, 2, {kNoFolder}},
      {L"host /av /disable /update /upgrade", true, 0xFFFFFFFF, {kRefused}},
      {L"host /AV:x /UPDATE:y /Upgrade", true, 0, {kUpdating, kUpgrading}},
      {L"host /av /as /fw /svc /upgrade", true, 0, {kUpgrading}},
      {L"host /av enable disable update", true, 0, {}},
      {L"host /as /disable /enable /update", false, 2, {kNoFolder}},
      {L"host /as /fw /enable", false, 2, {kNoFolder}},
      {L"host /fw /enable /disable", true, 0, {"wide 1 wsc: Starting FW."}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ProbedInstaller suite;
    if (!c.installed) SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE");
    test::CapturedLog log;
    EXPECT_EQ(c.result, ::run(c.text));
    std::vector<std::string> lines = log.module_lines();
    ASSERT_GE(lines.size(), 2u);
    lines.erase(lines.begin(), lines.begin() + 2);
    EXPECT_EQ(c.log, lines);
    const bool updated = c.installed && !c.log.empty() && c.log.front() == kUpdating;
    EXPECT_EQ(updated ? 2u : 0u, suite.Runs().size());
    EXPECT_EQ(c.text == std::wstring(L"host /fw /enable /disable"), standins::FirewallIsOn());
  }
}

TEST(ActionModes, DisablingFirstRestartsTheHostAsAnAdministrator) {
  const test::ImportFake<decltype(CheckTokenMembership)> nobody(
      "advapi32.dll", "CheckTokenMembership", [](auto*, HANDLE, PSID, BOOL* member) { return *member = FALSE, TRUE; });
  const test::ImportFake<decltype(ShellExecuteExW)> refuse("shell32.dll", "ShellExecuteExW",
                                                           [](auto*, auto...) { return SetLastError(ERROR_CANCELLED), FALSE; });
  const test::CapturedLog log;
  for (const wchar_t* text : {L"host /av /disable", L"host /as /disable"}) EXPECT_EQ(ERROR_CANCELLED, ::run(text));
}

// A library that is missing where it belongs is not taken from the folder where the host was started.
TEST(ActionModes, TheCurrentFolderIsNoPlaceToLoadFrom) {
  const instup::test::Stage stage;
  const test::CapturedLog log;
  wchar_t before[MAX_PATH], own[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  GetModuleFileNameW(nullptr, own, MAX_PATH);
  const std::wstring library = std::filesystem::path(own).replace_filename(L"crvData.dll").wstring();
  ASSERT_TRUE(CopyFileW(library.c_str(), stage.Path(L"planted.dll").c_str(), FALSE));
  SetCurrentDirectoryW(stage.Path(L"").c_str());
  const test::ImportFake<decltype(LoadLibraryW)> missing("kernel32.dll", "LoadLibraryW", [](auto* real, std::wstring name) {
    return real(name == L"crvData.dll" ? L"planted.dll" : name.c_str());
  });
  const auto enable = [](const wchar_t* search) { return SetDllDirectoryW(search), ::run(L"host /fw /enable"); };
  {
    const test::ImportFake<decltype(GetProcAddress)> old_xp(
        "kernel32.dll", "GetProcAddress",
        [](auto* real, auto dll, std::string name) { return name == "SetDllDirectoryW" ? nullptr : real(dll, name.c_str()); });
    EXPECT_EQ(0u, enable(nullptr)) << "found where the system looks by itself";
  }
  EXPECT_EQ(0xFFFFFFFF, enable(nullptr));
  EXPECT_EQ("exception 0 wsc: run: cannot load crvData.dll [ffffffff]", log.module_lines().back());
  EXPECT_EQ(0u, enable(stage.Path(L"").c_str())) << "the host's own choice of a folder holds";
  SetDllDirectoryW(nullptr);
  SetCurrentDirectoryW(before);
}

}  // namespace
}  // namespace crv::wsc
