#include "instup/library_folders.h"

#include <map>

#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using test::kCorvidKey;
using test::ScopedVariable;
using Made = std::map<std::wstring, SECURITY_ATTRIBUTES*>;

class LibraryFoldersTest : public test::StageTest {
 protected:
  LibraryFoldersTest() {
    EXPECT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
    folders_.temp = L"settled";
    SetExecutable(AddFile(L"place of the executable\\host.exe"));
    wchar_t text[MAX_PATH] = {};
    EXPECT_NE(0u, GetShortPathNameW(place_.c_str(), text, MAX_PATH));
    base_ = text;
    made_.clear();
  }
  ~LibraryFoldersTest() override { root::OptionalTableRelease(); }

  // The program and data folders, settled anew.
  std::pair<std::wstring, std::wstring> Settled() const {
    LibraryFolders folders = folders_;
    SettleLibraryFolders(folders);
    return {folders.program, folders.data};
  }
  using Folders = std::pair<std::wstring, std::wstring>;

  LibraryFolders folders_;
  const std::wstring place_ = Path(L"place of the executable");
  std::wstring base_;  // the same in its short form
  Made made_;          // every folder that the product makes, and with which attributes

 private:
  crv::test::ImportFake<decltype(CreateDirectoryW)> create_{
      "kernel32.dll", "CreateDirectoryW", [this](auto real, auto path, auto attributes) {
        const BOOL result = real(path, attributes);
        if (result) made_[path] = attributes;
        return result;
      }};
};

TEST_F(LibraryFoldersTest, TempFolderOfTheRegistryIsMadeOnceAndDefaultsToTheSystems) {
  test::SetText(kCorvidKey, L"TempFolder", Path(L"registry") + L"\\\\");
  folders_.temp.clear();
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"registry"), folders_.temp);
  test::DeleteValue(kCorvidKey, L"TempFolder");
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"registry"), folders_.temp) << "once settled it stays";
  EXPECT_EQ((Made{{Path(L"registry"), nullptr}}), made_) << "with the default security";

  const std::wstring temp = AddFolder(L"temp"), tmp = AddFolder(L"tmp"), current = AddFolder(L"current");
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(current.c_str());
  const struct {
    const wchar_t *temp, *tmp;
    std::wstring expected;
  } rows[] = {{temp.c_str(), tmp.c_str(), temp}, {nullptr, tmp.c_str(), tmp}, {nullptr, nullptr, current}};
  for (const auto& row : rows) {
    const ScopedVariable temp_variable(L"TEMP", row.temp), tmp_variable(L"TMP", row.tmp);
    folders_.temp.clear();
    SettleLibraryFolders(folders_);
    EXPECT_EQ(row.expected + L"\\_corvid_", folders_.temp);
    EXPECT_TRUE(test::IsDirectory(folders_.temp));
  }
  SetCurrentDirectoryW(before);
}

TEST_F(LibraryFoldersTest, ProgramAndDataFoldersFallBackStepByStep) {
  ASSERT_NE(base_, place_) << "the short form has to show";
  EXPECT_EQ(Folders(place_, place_ + L"\\DATA"), Settled()) << "nothing is known anywhere";
  test::SetText(kCorvidKey, L"ProgramFolder", AddFolder(L"program") + L"\\");
  test::SetText(kCorvidKey, L"DataFolder", AddFolder(L"data") + L"\\");
  const struct {
    const wchar_t* added;  // a file
    Folders expected;
  } steps[] = {
      {L"place of the executable\\data\\corvid5.ini", {place_, place_ + L"\\DATA"}},  // the program folder comes first
      {L"place of the executable\\crvCmnOS.dll", {base_, base_ + L"\\data"}},
      {L"program\\crvCmnOS.dll", {Path(L"program"), base_ + L"\\data"}},
      {L"data\\corvid5.ini", {Path(L"program"), Path(L"data")}},
  };
  for (const auto& step : steps) {
    AddFile(step.added);
    EXPECT_EQ(step.expected, Settled());
  }
  EXPECT_TRUE(made_.empty()) << "neither folder is made";
}

TEST_F(LibraryFoldersTest, TheExecutablesFolderIsTheLastResortAndNoBaseWithoutItsFile) {
  const std::wstring deep = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
  AddFile(L"gone\\crvCmnOS.dll");
  AddFile(L"gone\\corvid5.ini");
  const struct {
    std::wstring executable;
    Folders expected;
  } rows[] = {
      {L"host.exe", {L"", L""}},                                        // a path without a folder
      {Path(L"gone\\host.exe"), {Path(L"gone"), Path(L"gone\\DATA")}},  // deleted meanwhile: the markers beside it do not count
      {deep + L"\\host.exe", {deep, deep + L"\\DATA"}},                 // paths beyond MAX_PATH are not cut
      {L"", {L"", L""}},                                                // the system does not tell
  };
  for (const auto& row : rows) {
    SetExecutable(row.executable);
    EXPECT_EQ(row.expected, Settled());
  }
}

TEST_F(LibraryFoldersTest, DataSubFoldersAreMadeOpenToEveryone) {
  SECURITY_ATTRIBUTES* const open = root::OpenSecurityAttributes();
  ASSERT_NE(nullptr, open);
  folders_.data = Path(L"DATA");
  SettleDataSubFolders(folders_);
  Made expected{{folders_.data, open}};
  auto setting = folders_.settings.begin();
  for (const wchar_t* const name : {L"journal", L"backup", L"log", L"report", L"integ", L"chest", L"moved", L"fw"}) {
    EXPECT_EQ(Path(L"DATA\\") + name, setting->folder);
    expected[setting++->folder] = open;
  }
  EXPECT_EQ(expected, made_);
}

TEST_F(LibraryFoldersTest, DataSubFoldersFollowTheRegistryAndFallBackWhereTheyCannotBeMade) {
  folders_.data = AddFolder(L"data");
  const wchar_t* const values[] = {L"JournalFolder",   L"KeyFolder",   L"LogFolder",   L"ReportFolder",
                                   L"IntegrityFolder", L"ChestFolder", L"MovedFolder", L"FwDataFolder"};
  for (const wchar_t* const value : values) test::SetText(kCorvidKey, value, Path(value) + L"\\");
  test::DeleteValue(kCorvidKey, L"LogFolder");
  test::SetText(kCorvidKey, L"ChestFolder", Path(L"no\\parent"));
  AddFile(L"data\\log");  // blocks it, so the data folder itself has to do
  SettleDataSubFolders(folders_);
  for (const int i : {0, 1, 3, 4, 6, 7}) EXPECT_EQ(Path(values[i]), folders_.settings[i].folder);
  EXPECT_EQ(Path(L"data"), folders_.settings[2].folder);
  EXPECT_EQ(Path(L"data\\chest"), folders_.settings[5].folder);
  EXPECT_EQ(7u, made_.size());

  folders_.data = Path(L"no\\parent");
  SettleDataSubFolders(folders_);
  EXPECT_EQ(Path(L"no\\parent\\log"), folders_.settings[2].folder) << "named all the same";
}

}  // namespace
}  // namespace crv::instup
