#include "instup/library_folders.h"

#include <map>

#include "instup/stage.h"
#include "root/optional_functions.h"

namespace crv::instup {
namespace {

using test::kCorvidKey;
using test::ScopedVariable;

// Every folder that the product makes, and with which attributes.
std::map<std::wstring, SECURITY_ATTRIBUTES*> made;
BOOL(WINAPI* real_create)(const wchar_t*, SECURITY_ATTRIBUTES*) = nullptr;
BOOL WINAPI RecordedCreate(const wchar_t* path, SECURITY_ATTRIBUTES* attributes) {
  const BOOL result = real_create(path, attributes);
  if (result) made[path] = attributes;
  return result;
}

std::wstring ShortForm(const std::wstring& path) {
  wchar_t text[MAX_PATH] = {};
  EXPECT_NE(0u, GetShortPathNameW(path.c_str(), text, MAX_PATH));
  return text;
}

class LibraryFoldersTest : public test::StageTest {
 protected:
  LibraryFoldersTest() {
    real_create = create_.original<decltype(real_create)>();
    EXPECT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
    folders_.temp = L"settled";
    SetExecutable(AddFile(L"place of the executable\\host.exe"));
    place_ = Path(L"place of the executable");
    base_ = ShortForm(place_);
    made.clear();
  }
  ~LibraryFoldersTest() override { root::OptionalTableRelease(); }

  LibraryFolders folders_;
  std::wstring place_;  // the executable's folder
  std::wstring base_;   // in its short form

 private:
  crv::test::ImportPatch create_{"kernel32.dll", "CreateDirectoryW", reinterpret_cast<void*>(&RecordedCreate)};
};

TEST_F(LibraryFoldersTest, TempFolderOfTheRegistryIsUsedAndMade) {
  test::SetText(kCorvidKey, L"TempFolder", Path(L"tmp") + L"\\\\");
  folders_.temp.clear();
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"tmp"), folders_.temp);
  EXPECT_EQ((std::map<std::wstring, SECURITY_ATTRIBUTES*>{{Path(L"tmp"), nullptr}}), made) << "with the default security";

  // Once settled it stays and is not made again.
  RemoveDirectoryW(Path(L"tmp").c_str());
  test::SetText(kCorvidKey, L"TempFolder", Path(L"other"));
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"tmp"), folders_.temp);
  EXPECT_FALSE(test::IsDirectory(Path(L"tmp")));
}

TEST_F(LibraryFoldersTest, TempFolderDefaultsToTheSystems) {
  const std::wstring temp = AddFolder(L"temp"), tmp = AddFolder(L"tmp"), current = AddFolder(L"current");
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(current.c_str());
  const struct {
    const wchar_t* temp;
    const wchar_t* tmp;
    std::wstring expected;
  } rows[] = {{temp.c_str(), tmp.c_str(), temp}, {nullptr, tmp.c_str(), tmp}, {nullptr, nullptr, current}};
  for (const auto& row : rows) {
    const ScopedVariable temp_variable(L"TEMP", row.temp);
    const ScopedVariable tmp_variable(L"TMP", row.tmp);
    folders_.temp.clear();
    SettleLibraryFolders(folders_);
    EXPECT_EQ(row.expected + L"\\_corvid_", folders_.temp);
    EXPECT_TRUE(test::IsDirectory(row.expected + L"\\_corvid_"));
  }
  SetCurrentDirectoryW(before);
}

TEST_F(LibraryFoldersTest, ProgramAndDataFoldersFallBackStepByStep) {
  const std::wstring registry_program = AddFolder(L"program"), registry_data = AddFolder(L"data");
  ASSERT_NE(base_, place_) << "the short form has to show";
  const auto expect = [this](const std::wstring& program, const std::wstring& data) {
    LibraryFolders folders = folders_;
    SettleLibraryFolders(folders);
    EXPECT_EQ(program, folders.program);
    EXPECT_EQ(data, folders.data);
  };
  expect(place_, place_ + L"\\DATA");  // nothing is known anywhere

  test::SetText(kCorvidKey, L"ProgramFolder", registry_program + L"\\");
  test::SetText(kCorvidKey, L"DataFolder", registry_data + L"\\");
  AddFile(L"data\\corvid5.ini");
  expect(place_, place_ + L"\\DATA");  // without a program folder the data folder is not looked for

  AddFile(L"place of the executable\\crvCmnOS.dll");
  expect(base_, registry_data);
  AddFile(L"program\\crvCmnOS.dll");
  expect(registry_program, registry_data);

  DeleteFileW(Path(L"data\\corvid5.ini").c_str());
  expect(registry_program, place_ + L"\\DATA");
  AddFile(L"place of the executable\\corvid5.ini");
  expect(registry_program, base_);
  AddFile(L"place of the executable\\data\\corvid5.ini");
  expect(registry_program, base_ + L"\\data");
  EXPECT_TRUE(made.empty()) << "neither folder is made";
}

TEST_F(LibraryFoldersTest, TheExecutablesFolderIsTheLastResortAndNoBaseWithoutItsFile) {
  const std::wstring deep = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
  AddFile(L"gone\\crvCmnOS.dll");
  AddFile(L"gone\\corvid5.ini");
  const struct {
    std::wstring executable, program, data;
  } rows[] = {
      {L"", L"", L""},          // the system does not tell
      {L"host.exe", L"", L""},  // a path without a folder
      {Path(L"gone\\host.exe"), Path(L"gone"), Path(L"gone\\DATA")},  // deleted meanwhile: the markers beside it do not count
      {deep + L"\\host.exe", deep, deep + L"\\DATA"},  // paths beyond MAX_PATH are not cut
  };
  for (const auto& row : rows) {
    SetExecutable(row.executable);
    LibraryFolders folders = folders_;
    SettleLibraryFolders(folders);
    EXPECT_EQ(row.program, folders.program);
    EXPECT_EQ(row.data, folders.data);
  }

  SetExecutable(L"");
  test::SetText(kCorvidKey, L"ProgramFolder", Path(L"gone"));
  test::SetText(kCorvidKey, L"DataFolder", Path(L"gone"));
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"gone"), folders_.program) << "the registry counts all the same";
  EXPECT_EQ(Path(L"gone"), folders_.data);
}

constexpr const wchar_t* kSettings[][2] = {
    {L"JournalFolder", L"journal"},   {L"KeyFolder", L"backup"},  {L"LogFolder", L"log"},     {L"ReportFolder", L"report"},
    {L"IntegrityFolder", L"integ"}, {L"ChestFolder", L"chest"}, {L"MovedFolder", L"moved"}, {L"FwDataFolder", L"fw"},
};

TEST_F(LibraryFoldersTest, SubFoldersOfAMissingDataFolderAreMadeOpenToEveryone) {
  folders_.data = Path(L"DATA");
  SettleDataSubFolders(folders_);
  SECURITY_ATTRIBUTES* const open = root::OpenSecurityAttributes();
  ASSERT_NE(nullptr, open);
  std::map<std::wstring, SECURITY_ATTRIBUTES*> expected{{Path(L"DATA"), open}};
  for (std::size_t i = 0; i < std::size(kSettings); ++i) {
    const std::wstring folder = Path(L"DATA\\") + kSettings[i][1];
    expected[folder] = open;
    EXPECT_EQ(folder, folders_.settings[i].folder);
  }
  EXPECT_EQ(expected, made);
}

TEST_F(LibraryFoldersTest, SubFoldersFollowTheRegistryAndFallBackWhereTheyCannotBeMade) {
  folders_.data = AddFolder(L"data");
  for (const auto& [value, name] : kSettings) test::SetText(kCorvidKey, value, Path(L"other ") + name + L"\\");
  test::SetText(kCorvidKey, L"ChestFolder", Path(L"no\\parent"));
  test::DeleteValue(kCorvidKey, L"LogFolder");
  AddFile(L"data\\log");
  std::map<std::wstring, SECURITY_ATTRIBUTES*> expected;
  SettleDataSubFolders(folders_);
  for (std::size_t i = 0; i < std::size(kSettings); ++i) {
    const std::wstring name = kSettings[i][1];
    const bool blocked = name == L"log";  // by a file of that name, so the data folder itself has to do
    const std::wstring folder = blocked ? Path(L"data") : name == L"chest" ? Path(L"data\\chest") : Path(L"other ") + name;
    EXPECT_EQ(folder, folders_.settings[i].folder);
    if (!blocked) expected[folder] = root::OpenSecurityAttributes();
  }
  EXPECT_EQ(expected, made);
}

TEST_F(LibraryFoldersTest, SubFoldersWithoutAnyPlaceAreNamedAllTheSame) {
  folders_.data = Path(L"no\\parent");
  SettleDataSubFolders(folders_);
  for (std::size_t i = 0; i < std::size(kSettings); ++i) {
    EXPECT_EQ(Path(L"no\\parent\\") + kSettings[i][1], folders_.settings[i].folder);
  }
  EXPECT_FALSE(test::IsDirectory(Path(L"no")));
}

}  // namespace
}  // namespace crv::instup
