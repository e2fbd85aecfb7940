// How the common OS library finds its folders, from the text in the registry to the folder that is made.
#include "instup/library_folders.h"

#include <map>

#include "instup/folder_lookup.h"
#include "instup/registry_text.h"
#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using test::kCorvidKey;
using Made = std::map<std::wstring, SECURITY_ATTRIBUTES*>;

class LibraryFoldersTest : public test::StageTest {
 protected:
  LibraryFoldersTest() {
    EXPECT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
    folders_.temp = L"settled";
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
  Made made_;  // every folder that the product makes, and with which attributes

 private:
  crv::test::ImportFake<decltype(CreateDirectoryW)> create_{"kernel32.dll", "CreateDirectoryW",
                                                            [this](auto real, auto path, auto attributes) {
                                                              const BOOL result = real(path, attributes);
                                                              if (result) made_[path] = attributes;
                                                              return result;
                                                            }};
};

TEST_F(LibraryFoldersTest, AnUncheckedValueCountsIfItIsAWholePath) {
  const crv::test::ImportFake<decltype(RegOpenKeyExW)> open(
      "advapi32.dll", "RegOpenKeyExW", [](auto real, HKEY root, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
        EXPECT_EQ(DWORD{KEY_READ}, access) << "as much as every user has";
        return real(root, path, options, access, key);
      });
  const FolderQuery query{.value_name = L"Value", .key_path = L"Software\\Folders"};
  std::wstring folder = L"older";
  EXPECT_EQ(3u, LookupFolder(folder, query)) << "without a key";
  EXPECT_EQ(L"", folder);
  const std::wstring full = L"C:\\" + std::wstring(257, L'a');  // as much as the first buffer holds
  const struct {
    DWORD type;
    std::wstring text;
    std::wstring expected;
    DWORD cut = 0;  // bytes off its end
  } cases[] = {
      {REG_SZ, L"", L""},
      {REG_SZ, L"folder", L""},
      {REG_SZ, L"\\folder", L""},
      {REG_SZ, L"Q:\\nowhere\\\\", L"Q:\\nowhere"},
      {REG_MULTI_SZ, std::wstring(L"C:\\a\0b\0", 7), L"C:\\a"},  // what stands behind its end is none of it
      {REG_BINARY, L"C:\\ab", L"C:\\a", 3},                      // half a character
      {REG_EXPAND_SZ, full, full, 2},
      {REG_SZ, full, full},
  };
  for (const auto& c : cases) {
    test::SetBytes(query.key_path, L"Value", c.type, c.text.c_str(), (c.text.size() + 1) * sizeof(wchar_t) - c.cut);
    SetLastError(77);
    const DWORD result = LookupFolder(folder, query);
    EXPECT_EQ(result, GetLastError());
    EXPECT_EQ(c.expected.empty() ? 3u : 0u, result) << "row " << (&c - cases);
    EXPECT_EQ(c.expected, folder) << "row " << (&c - cases);
  }
  for (const auto& [size, code] : {std::pair(0x7FFFFFFEu, 8u), {0xFFFFFFFEu, 8u}, {520u, 234u}}) {  // no memory; fits already
    const crv::test::ImportFake<decltype(RegQueryValueExW)> never_enough(
        "advapi32.dll", "RegQueryValueExW",
        [&](auto, auto, auto, auto, auto, auto, DWORD* bytes) { return *bytes = size, ERROR_MORE_DATA; });
    EXPECT_EQ(code, ReadRegistryString(HKEY_LOCAL_MACHINE, L"Value", folder));
    EXPECT_EQ(L"", folder);
  }
}

TEST_F(LibraryFoldersTest, FoldersPassTheCheckOfTheirMode) {
  constexpr const wchar_t* kMarkers[] = {L"first.ini", nullptr, L"third.ini"};
  for (const wchar_t* file : {L"f\\first.ini", L"all\\first.ini", L"all\\third.ini"}) AddFile(file);
  AddFolder(L"folder\\first.ini");
  const struct {
    const wchar_t* folder;
    int mode;
    bool expected;
  } cases[] = {
      {L"folder", 1, false},
      {L"f", 1, true},
      {L"f", 2, true},
      {L"f", 3, false},
      {L"all", 4, true},
      {L"new", kMustExist, false},
      {L"new", kCreateIfMissing, true},
      {L"new", kMustExist, true},
      {L"no\\parent", kCreateIfMissing, false},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, VerifyFolder(Path(c.folder), kMarkers, c.mode)) << "row " << (&c - cases);
}

TEST_F(LibraryFoldersTest, TempFolderOfTheRegistryIsMadeOnceAndDefaultsToTheSystems) {
  test::SetText(kCorvidKey, L"TempFolder", Path(L"registry"));
  folders_.temp.clear();
  SettleLibraryFolders(folders_);
  EXPECT_EQ((Made{{Path(L"registry"), nullptr}}), made_) << "with the default security";
  test::DeleteValue(kCorvidKey, L"TempFolder");
  SettleLibraryFolders(folders_);
  EXPECT_EQ(Path(L"registry"), folders_.temp) << "once settled it stays";
  folders_.temp.clear();
  SettleLibraryFolders(folders_);
  EXPECT_EQ(_wgetenv(L"TEMP") + std::wstring(L"\\_corvid_"), folders_.temp);
  EXPECT_TRUE(test::IsDirectory(folders_.temp));
}

TEST_F(LibraryFoldersTest, ProgramAndDataFoldersFallBackStepByStep) {
  const std::wstring place = Path(L"place of the executable");
  SetExecutable(AddFile(L"place of the executable\\host.exe"));
  wchar_t base[MAX_PATH] = {};
  EXPECT_NE(0u, GetShortPathNameW(place.c_str(), base, MAX_PATH));
  ASSERT_NE(base, place) << "the short form has to show";
  test::SetText(kCorvidKey, L"ProgramFolder", AddFolder(L"program") + L"\\");
  test::SetText(kCorvidKey, L"DataFolder", AddFolder(L"data") + L"\\");
  const std::wstring default_data = base + std::wstring(L"\\data");
  const struct {
    const wchar_t* added;  // a file
    Folders expected;
  } steps[] = {
      {L"place of the executable\\corvid5.ini", {place, place + L"\\DATA"}},  // the program folder comes first
      {L"place of the executable\\crvCmnOS.dll", {base, base}},
      {L"place of the executable\\data\\corvid5.ini", {base, default_data}},
      {L"program\\crvCmnOS.dll", {Path(L"program"), default_data}},
      {L"data\\corvid5.ini", {Path(L"program"), Path(L"data")}},
  };
  for (const auto& step : steps) {
    AddFile(step.added);
    EXPECT_EQ(step.expected, Settled());
  }
  EXPECT_TRUE(made_.empty()) << "neither folder is made";
}

TEST_F(LibraryFoldersTest, TheExecutablesFolderIsTheLastResortAndNoBaseWithoutItsFile) {
  AddFile(L"gone\\crvCmnOS.dll");
  AddFile(L"gone\\corvid5.ini");
  SetExecutable(Path(L"gone\\host.exe"));  // deleted meanwhile: the markers beside it do not count
  EXPECT_EQ(Folders(Path(L"gone"), Path(L"gone\\DATA")), Settled());
  const std::wstring deep = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
  SetExecutable(deep + L"\\host.exe");
  EXPECT_EQ(Folders(deep, deep + L"\\DATA"), Settled()) << "paths beyond MAX_PATH are not cut";
  SetExecutable(L"");
  EXPECT_EQ(Folders(), Settled()) << "the system does not tell";
}

TEST_F(LibraryFoldersTest, DataSubFoldersFollowTheRegistryAndAreMadeOpenToEveryone) {
  SECURITY_ATTRIBUTES* const open = root::OpenSecurityAttributes();
  ASSERT_NE(nullptr, open);
  test::SetText(kCorvidKey, L"FwDataFolder", Path(L"firewall") + L"\\");
  test::SetText(kCorvidKey, L"ChestFolder", Path(L"no\\parent"));
  AddFile(L"DATA\\log");  // blocks it, so the data folder itself has to do
  folders_.data = Path(L"DATA");
  SettleDataSubFolders(folders_);
  const std::wstring expected[] = {L"DATA\\journal", L"DATA\\backup", L"DATA",        L"DATA\\report",
                                   L"DATA\\integ",   L"DATA\\chest",  L"DATA\\moved", L"firewall"};
  Made made;
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(Path(expected[i]), folders_.settings[i].folder);
    if (expected[i] != L"DATA") made[Path(expected[i])] = open;
  }
  EXPECT_EQ(made, made_);

  folders_.data = Path(L"NEW");  // made by the first of them, which gets its own folder all the same
  SettleDataSubFolders(folders_);
  EXPECT_EQ(Path(L"NEW\\journal"), folders_.settings[0].folder);
  EXPECT_TRUE(test::IsDirectory(Path(L"NEW\\journal")) && test::IsDirectory(Path(L"NEW\\moved")));
  folders_.data = Path(L"no\\parent");
  SettleDataSubFolders(folders_);
  EXPECT_EQ(Path(L"no\\parent\\journal"), folders_.settings[0].folder) << "even if it cannot be made";
}

}  // namespace
}  // namespace crv::instup
