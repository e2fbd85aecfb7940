#include "instup/common_os.h"

#include <cstdlib>
#include <utility>

#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;
using test::kCorvidKey;

// Runs the body in a process of its own, in which the library has never been called, and demands that nothing failed there. The
// folders that the library falls back to lie on the stage.
void InFreshProcess(void (*body)(test::Stage& stage)) {
  const auto run = [body] {
    test::Stage stage;
    const test::ScopedVariable temp(L"TEMP", stage.AddFolder(L"system temp").c_str());
    stage.SetExecutable(stage.AddFile(L"host\\host.exe"));
    body(stage);
  };
  EXPECT_EXIT((run(), std::exit(testing::Test::HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

// An installation whose folders the registry names.
void Install(test::Stage& stage) {
  stage.AddFile(L"program\\crvCmnOS.dll");
  stage.AddFile(L"data\\corvid5.ini");
  test::SetText(kCorvidKey, L"ProgramFolder", stage.Path(L"program"));
  test::SetText(kCorvidKey, L"DataFolder", stage.Path(L"data"));
  test::SetText(kCorvidKey, L"TempFolder", stage.Path(L"temp"));
}

int TableReferences() { return root::OptionalFunctions().table_count; }

// The critical sections that were made and deleted, and the one that cannot be made.
struct CountedSections {
  int made = 0, deleted = 0;
  int failing = 0;  // counted from 1

  ImportFake<decltype(InitializeCriticalSectionAndSpinCount)> make{
      "kernel32.dll", "InitializeCriticalSectionAndSpinCount", [this](auto real, auto* section, DWORD spin) {
        return ++made == failing ? SetLastError(ERROR_NO_SYSTEM_RESOURCES), FALSE : real(section, spin);
      }};
  ImportFake<decltype(DeleteCriticalSection)> remove{
      "kernel32.dll", "DeleteCriticalSection", [this](auto real, auto* section) { return ++deleted, real(section); }};
};

TEST(CommonOs, FirstReferenceSetsUpAndLastTearsDown) {
  InFreshProcess([](test::Stage& stage) {
    Install(stage);
    const CountedSections sections;
    EXPECT_EQ(L"", CmnOsProgramFolder());
    EXPECT_EQ(0u, CmnOsUninitialize()) << "before the first initialisation there is nothing to release";

    SetLastError(1);
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(0u, GetLastError());
    EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder());
    EXPECT_TRUE(test::IsDirectory(stage.Path(L"temp")) && test::IsDirectory(stage.Path(L"data\\journal")));
    EXPECT_EQ(3, sections.made) << "of the table, the library and its lock object";

    RemoveDirectoryW(stage.Path(L"data\\journal").c_str());
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_FALSE(test::IsDirectory(stage.Path(L"data\\journal"))) << "a further reference only counts";
    EXPECT_EQ(0u, CmnOsUninitialize());
    EXPECT_EQ(1, TableReferences());
    EXPECT_EQ(0, sections.deleted);
    for (int releases = 0; releases < 2; ++releases) {  // one too many, which is not counted
      EXPECT_EQ(0u, CmnOsUninitialize());
      EXPECT_EQ(0, TableReferences());
      EXPECT_EQ(1, sections.deleted) << "of the lock object";
    }

    test::SetText(kCorvidKey, L"ProgramFolder", stage.Path(L"host"));
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(1, TableReferences());
    EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder()) << "settled folders outlive the release";
    EXPECT_TRUE(test::IsDirectory(stage.Path(L"data\\journal"))) << "sub-folders are looked up again";
    EXPECT_EQ(4, sections.made) << "a new lock object";
  });
}

TEST(CommonOs, FailuresOfTheSystemAreReportedAndUndone) {
  InFreshProcess([](test::Stage& stage) {
    Install(stage);
    CountedSections sections;
    bool acl_fails = false;
    const ImportFake<decltype(InitializeAcl)> make_acl(
        "advapi32.dll", "InitializeAcl", [&](auto real, auto... arguments) { return !acl_fails && real(arguments...); });
    const struct {
      int section;  // that fails: the table's, the library's, the lock object's; 0: the access list does
      DWORD result;
    } rows[] = {
        {1, ERROR_NO_SYSTEM_RESOURCES}, {2, ERROR_NO_SYSTEM_RESOURCES}, {0, ERROR_NOT_ENOUGH_MEMORY}, {3, ERROR_NOT_ENOUGH_MEMORY}};
    for (const auto& row : rows) {
      sections.failing = row.section;
      acl_fails = row.section == 0;
      EXPECT_EQ(row.result, CmnOsInitialize(0)) << "section " << row.section;
      EXPECT_EQ(row.result, GetLastError());
      EXPECT_EQ(0u, CmnOsUninitialize()) << "no reference is held";
      EXPECT_EQ(0, TableReferences());
      EXPECT_EQ(L"", CmnOsProgramFolder());
      if (row.section > 0) sections.made = row.section - 1;  // those before it stay
    }
    sections.failing = 0;
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder());
  });
}

// Memory runs out at one allocation of the program and is there again afterwards.
TEST(CommonOs, EveryFailingAllocationIsUndone) {
  InFreshProcess([](test::Stage&) {
    int failing = 0;
    const ImportFake<void*(std::size_t)> scarce("msvcrt.dll", "malloc", [&](auto real, std::size_t bytes) {
      return failing > 0 && --failing == 0 ? nullptr : real(bytes);
    });
    int failures = 0;
    bool reached = true;
    for (int i = 1; reached && i < 500; ++i) {
      failing = i;
      const DWORD result = CmnOsInitialize(0);
      reached = std::exchange(failing, 0) == 0;
      failures += result == ERROR_NOT_ENOUGH_MEMORY;
      EXPECT_TRUE(result == 0 || result == ERROR_NOT_ENOUGH_MEMORY) << result;  // 0 also when a registry value was not read
      EXPECT_EQ(result == 0 ? 1 : 0, TableReferences());
      if (result == 0) CmnOsUninitialize();
    }
    EXPECT_FALSE(reached);
    EXPECT_GT(failures, 10);
  });
}

TEST(CommonOs, RepairsOnlyABrokenSystemRoot) {
  InFreshProcess([](test::Stage&) {
    wchar_t windows[MAX_PATH];
    GetWindowsDirectoryW(windows, MAX_PATH);
    const std::wstring longer = L"C:\\" + std::wstring(300, L'w');
    const wchar_t* const values[][2] = {
        {nullptr, windows}, {L"", windows}, {L"%Other%", windows}, {L"Q:\\Win", L"Q:\\Win"}, {longer.c_str(), longer.c_str()}};
    for (const auto& [before, expected] : values) {
      SetEnvironmentVariableW(L"SystemRoot", before);
      EXPECT_EQ(0u, CmnOsInitialize(0));
      wchar_t after[512] = {};
      GetEnvironmentVariableW(L"SystemRoot", after, 512);
      EXPECT_STREQ(expected, after);
      CmnOsUninitialize();
    }
  });
}

}  // namespace
}  // namespace crv::instup
