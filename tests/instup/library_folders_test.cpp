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

TEST_F(LibraryFoldersTest, TempFolderThatCannotBeMadeIsUsedAllTheSame) {
  test::SetText(kCorvidKey, L"TempFolder", Path(L"no\\parent"));
  folders_.temp.clear();
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"no\\parent"), folders_.temp);
  EXPECT_TRUE(made.empty());
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

TEST_F(LibraryFoldersTest, SettledDataFolderKeepsBoth) {
  AddFile(L"place of the executable\\crvCmnOS.dll");
  folders_.program = L"P:\\";
  folders_.data = L"D:\\";
  SettleLibraryFolders(folders_);
  EXPECT_EQ(L"P:\\", folders_.program);
  EXPECT_EQ(L"D:\\", folders_.data);
}

TEST_F(LibraryFoldersTest, DriveRootKeepsItsBackslash) {
  struct Marker {
    std::wstring path;
    explicit Marker(const wchar_t* text) : path(text) {
      CloseHandle(CreateFileW(text, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    }
    ~Marker() { DeleteFileW(path.c_str()); }
  };
  const Marker host(L"C:\\host.exe"), program(L"C:\\crvCmnOS.dll"), data(L"C:\\corvid5.ini");
  SetExecutable(host.path);
  SettleLibraryFolders(folders_);
  EXPECT_EQ(L"C:\\", folders_.program);
  EXPECT_EQ(L"C:\\", folders_.data);
}

TEST_F(LibraryFoldersTest, WithoutTheExecutableOnlyTheRegistryCounts) {
  SetExecutable(L"");
  SettleLibraryFolders(folders_);
  EXPECT_EQ(L"", folders_.program);
  EXPECT_EQ(L"", folders_.data);

  SetExecutable(L"host.exe");  // a path without a folder
  SettleLibraryFolders(folders_);
  EXPECT_EQ(L"", folders_.program);

  SetExecutable(Path(L"gone\\host.exe"));  // deleted meanwhile: its folder is no base, but the last resort
  AddFile(L"gone\\crvCmnOS.dll");
  AddFile(L"gone\\corvid5.ini");
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"gone"), folders_.program);
  EXPECT_EQ(Path(L"gone\\DATA"), folders_.data);

  LibraryFolders folders;
  folders.temp = L"settled";
  SetExecutable(L"");
  test::SetText(kCorvidKey, L"ProgramFolder", Path(L"gone"));
  test::SetText(kCorvidKey, L"DataFolder", Path(L"gone"));
  SettleLibraryFolders(folders);
  EXPECT_EQ(Path(L"gone"), folders.program);
  EXPECT_EQ(Path(L"gone"), folders.data);
}

TEST_F(LibraryFoldersTest, PathsBeyondMaxPathAreNotCut) {
  const std::wstring long_folder = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
  SetExecutable(long_folder + L"\\host.exe");
  SettleLibraryFolders(folders_);
  EXPECT_EQ(long_folder, folders_.program);
  EXPECT_EQ(long_folder + L"\\DATA", folders_.data);
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

TEST_F(LibraryFoldersTest, SubFoldersFollowTheRegistry) {
  folders_.data = AddFolder(L"data");
  for (const auto& [value, name] : kSettings) test::SetText(kCorvidKey, value, Path(L"other ") + name + L"\\");
  SettleDataSubFolders(folders_);
  for (std::size_t i = 0; i < std::size(kSettings); ++i) {
    EXPECT_EQ(Path(L"other ") + kSettings[i][1], folders_.settings[i].folder);
    EXPECT_EQ(1u, made.count(folders_.settings[i].folder));
  }
  EXPECT_TRUE(std::filesystem::is_empty(Path(L"data")));
}

TEST_F(LibraryFoldersTest, SubFoldersThatCannotBeMadeFallBack) {
  folders_.data = AddFolder(L"data");
  AddFile(L"data\\log");
  test::SetText(kCorvidKey, L"ChestFolder", Path(L"no\\parent"));
  SettleDataSubFolders(folders_);
  EXPECT_EQ(Path(L"data"), folders_.settings[2].folder) << "a file stands in the way";
  EXPECT_EQ(Path(L"data\\chest"), folders_.settings[5].folder);
  EXPECT_TRUE(test::IsDirectory(Path(L"data\\chest")));

  folders_.data = Path(L"no\\parent");
  test::DeleteValue(kCorvidKey, L"ChestFolder");
  SettleDataSubFolders(folders_);
  for (std::size_t i = 0; i < std::size(kSettings); ++i) {
    EXPECT_EQ(Path(L"no\\parent\\") + kSettings[i][1], folders_.settings[i].folder);
  }
  EXPECT_FALSE(test::IsDirectory(Path(L"no")));
}

}  // namespace
}  // namespace crv::instup
