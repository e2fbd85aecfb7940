#include "instup/common_os.h"

#include <cstdlib>
#include <utility>

#include "instup/stage.h"
#include "root/optional_functions.h"

namespace crv::instup {
namespace {

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

void ExpectTableReferences(int count) { EXPECT_EQ(count, root::OptionalFunctions().table_count); }

// The creations and deletions of critical sections, and a creation that fails.
int creations = 0;
int deletions = 0;
int failing_creation = 0;
DWORD failure = 0;
BOOL(WINAPI* real_make_section)(CRITICAL_SECTION*, DWORD) = nullptr;
void(WINAPI* real_delete_section)(CRITICAL_SECTION*) = nullptr;
BOOL WINAPI MakeSection(CRITICAL_SECTION* section, DWORD spin) {
  if (++creations != failing_creation) return real_make_section(section, spin);
  SetLastError(failure);
  return FALSE;
}
void WINAPI DeleteSection(CRITICAL_SECTION* section) {
  ++deletions;
  real_delete_section(section);
}

class CountedSections {
 public:
  CountedSections() {
    real_make_section = make_.original<decltype(real_make_section)>();
    real_delete_section = delete_.original<decltype(real_delete_section)>();
  }

 private:
  crv::test::ImportPatch make_{"kernel32.dll", "InitializeCriticalSectionAndSpinCount", reinterpret_cast<void*>(&MakeSection)};
  crv::test::ImportPatch delete_{"kernel32.dll", "DeleteCriticalSection", reinterpret_cast<void*>(&DeleteSection)};
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
    EXPECT_TRUE(test::IsDirectory(stage.Path(L"temp")));
    for (const wchar_t* const name : {L"journal", L"backup", L"log", L"report", L"integ", L"chest", L"moved", L"fw"}) {
      EXPECT_TRUE(test::IsDirectory(stage.Path(L"data\\") + name));
    }
    EXPECT_EQ(1, root::OptionalFunctions().first_stage_count);
    EXPECT_EQ(3, creations) << "of the table, the library and its lock object";
    ExpectTableReferences(1);

    RemoveDirectoryW(stage.Path(L"data\\journal").c_str());
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_FALSE(test::IsDirectory(stage.Path(L"data\\journal"))) << "a further reference only counts";
    EXPECT_EQ(0u, CmnOsUninitialize());
    ExpectTableReferences(1);
    EXPECT_EQ(0, deletions);
    EXPECT_EQ(0u, CmnOsUninitialize());
    ExpectTableReferences(0);
    EXPECT_EQ(1, deletions) << "of the lock object";
    EXPECT_EQ(3, creations);
    EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder()) << "folders stay";

    EXPECT_EQ(0u, CmnOsUninitialize());
    ExpectTableReferences(0);
    EXPECT_EQ(0u, CmnOsInitialize(0)) << "a release too many has not been counted";
    ExpectTableReferences(1);
    EXPECT_TRUE(test::IsDirectory(stage.Path(L"data\\journal"))) << "sub-folders are looked up again";
    EXPECT_EQ(4, creations) << "a new lock object";
    EXPECT_EQ(0u, CmnOsUninitialize());
    ExpectTableReferences(0);
    EXPECT_EQ(2, deletions);
  });
}

TEST(CommonOs, SettledFoldersOutliveTheRelease) {
  InFreshProcess([](test::Stage& stage) {
    stage.SetExecutable(stage.AddFile(L"first\\host.exe"));
    ASSERT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(stage.Path(L"first"), CmnOsProgramFolder());
    CmnOsUninitialize();
    Install(stage);
    ASSERT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(stage.Path(L"first"), CmnOsProgramFolder());
    EXPECT_FALSE(test::IsDirectory(stage.Path(L"temp")));
    EXPECT_TRUE(test::IsDirectory(stage.Path(L"first\\DATA\\fw")));
  });
}

BOOL(WINAPI* real_make_acl)(ACL*, DWORD, DWORD) = nullptr;
bool acl_fails = false;
BOOL WINAPI MakeAcl(ACL* acl, DWORD bytes, DWORD revision) { return !acl_fails && real_make_acl(acl, bytes, revision); }

TEST(CommonOs, FailuresOfTheSystemAreReportedAndUndone) {
  InFreshProcess([](test::Stage& stage) {
    Install(stage);
    const CountedSections sections;
    const crv::test::ImportPatch patch("advapi32.dll", "InitializeAcl", reinterpret_cast<void*>(&MakeAcl));
    real_make_acl = patch.original<decltype(real_make_acl)>();
    failure = ERROR_NO_SYSTEM_RESOURCES;
    const struct {
      int creation;  // the critical section that fails: the table's, the library's, the lock object's; 0: none
      DWORD result;
    } rows[] = {{1, failure}, {2, failure}, {0, ERROR_NOT_ENOUGH_MEMORY}, {3, ERROR_NOT_ENOUGH_MEMORY}};
    for (const auto& row : rows) {
      failing_creation = row.creation;
      acl_fails = row.creation == 0;
      EXPECT_EQ(row.result, CmnOsInitialize(0)) << "creation " << row.creation;
      EXPECT_EQ(row.result, GetLastError());
      ExpectTableReferences(0);
      EXPECT_EQ(0u, CmnOsUninitialize()) << "no reference is held";
      ExpectTableReferences(0);
      EXPECT_EQ(L"", CmnOsProgramFolder());
      EXPECT_FALSE(test::IsDirectory(stage.Path(L"temp")));
      if (row.creation > 0) creations = row.creation - 1;  // those before it stay
    }
    failing_creation = 0;
    EXPECT_EQ(0u, CmnOsInitialize(0));
    EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder());
    ExpectTableReferences(1);
  });
}

// Memory that runs out at one allocation of the program and is there again afterwards.
int failing_allocation = 0;
void*(__cdecl* real_malloc)(std::size_t) = nullptr;
void* __cdecl ScarceMalloc(std::size_t bytes) {
  if (failing_allocation > 0 && --failing_allocation == 0) return nullptr;
  return real_malloc(bytes);
}

TEST(CommonOs, EveryFailingAllocationIsUndone) {
  InFreshProcess([](test::Stage& stage) {
    stage.SetExecutable(stage.AddFile(L"place of the executable\\host.exe"));
    const crv::test::ImportPatch patch("msvcrt.dll", "malloc", reinterpret_cast<void*>(&ScarceMalloc));
    real_malloc = patch.original<decltype(real_malloc)>();
    int failures = 0;
    for (int i = 1; i < 500; ++i) {
      failing_allocation = i;
      const DWORD result = CmnOsInitialize(0);
      const bool reached = std::exchange(failing_allocation, 0) == 0;
      if (result == 0) {  // not reached, or a registry value that was not read for want of memory
        ExpectTableReferences(1);
        CmnOsUninitialize();
      }
      failures += result == 8;
      EXPECT_TRUE(result == 0 || result == 8) << result;
      ExpectTableReferences(0);
      if (!reached) break;
    }
    EXPECT_EQ(0, failing_allocation);
    EXPECT_GT(failures, 10);
    EXPECT_EQ(0u, CmnOsInitialize(0));
  });
}

TEST(CommonOs, RepairsOnlyABrokenSystemRoot) {
  InFreshProcess([](test::Stage&) {
    wchar_t windows[MAX_PATH];
    GetWindowsDirectoryW(windows, MAX_PATH);
    const std::wstring longer = L"C:\\" + std::wstring(300, L'w');
    const struct {
      const wchar_t* before;
      const wchar_t* after;
    } rows[] = {
        {nullptr, windows}, {L"", windows}, {L"%SystemRoot%", windows}, {L"%Other%", windows}, {L"Q:\\Win", L"Q:\\Win"},
        {longer.c_str(), longer.c_str()},
    };
    for (const auto& row : rows) {
      SetEnvironmentVariableW(L"SystemRoot", row.before);
      EXPECT_EQ(0u, CmnOsInitialize(0));
      wchar_t after[512] = {};
      GetEnvironmentVariableW(L"SystemRoot", after, 512);
      EXPECT_STREQ(row.after, after) << "row " << &row - rows;
      CmnOsUninitialize();
    }
  });
}

}  // namespace
}  // namespace crv::instup
