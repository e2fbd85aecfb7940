#include "instup/common_os.h"

#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;
using test::kCorvidKey;

int TableReferences() { return root::OptionalFunctions().table_count; }

TEST(CommonOs, FirstReferenceSetsUpAndLastTearsDown) {
  const test::Stage stage;
  stage.AddFile(L"program\\crvCmnOS.dll");
  stage.AddFile(L"data\\corvid5.ini");
  test::SetText(kCorvidKey, L"ProgramFolder", stage.Path(L"program"));
  test::SetText(kCorvidKey, L"DataFolder", stage.Path(L"data"));
  test::SetText(kCorvidKey, L"TempFolder", stage.Path(L"temp"));
  int sections_deleted = 0;
  const ImportFake<decltype(DeleteCriticalSection)> remove(
      "kernel32.dll", "DeleteCriticalSection", [&](auto real, auto* section) { return ++sections_deleted, real(section); });
  EXPECT_EQ(L"", CmnOsProgramFolder());
  EXPECT_EQ(0u, CmnOsUninitialize()) << "before the first initialisation there is nothing to release";

  EXPECT_EQ(0u, CmnOsInitialize(0));
  EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder());
  EXPECT_TRUE(test::IsDirectory(stage.Path(L"data\\journal")));
  RemoveDirectoryW(stage.Path(L"data\\journal").c_str());
  EXPECT_EQ(0u, CmnOsInitialize(0));
  EXPECT_FALSE(test::IsDirectory(stage.Path(L"data\\journal"))) << "a further reference only counts";
  EXPECT_EQ(0u, CmnOsUninitialize());
  EXPECT_EQ(1, TableReferences());
  EXPECT_EQ(0, sections_deleted);
  for (int releases = 0; releases < 2; ++releases) {  // one too many, which is not counted
    EXPECT_EQ(0u, CmnOsUninitialize());
    EXPECT_EQ(0, TableReferences());
    EXPECT_EQ(1, sections_deleted) << "of the lock object";
  }

  {
    const ImportFake<decltype(InitializeAcl)> no_acl("advapi32.dll", "InitializeAcl", [](auto...) { return FALSE; });
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, CmnOsInitialize(0));
    EXPECT_EQ(0, TableReferences()) << "a failure is undone";
  }
  test::SetText(kCorvidKey, L"ProgramFolder", stage.Path(L"host"));
  EXPECT_EQ(0u, CmnOsInitialize(0));
  EXPECT_EQ(1, TableReferences());
  EXPECT_EQ(stage.Path(L"program"), CmnOsProgramFolder()) << "settled folders outlive the release";
  EXPECT_TRUE(test::IsDirectory(stage.Path(L"data\\journal"))) << "sub-folders are looked up again";
}

}  // namespace
}  // namespace crv::instup
