#include "instup/folder_lookup.h"

#include <utility>

#include "instup/library_folders.h"
#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;

constexpr const wchar_t* kKey = L"Software\\Folders";
constexpr const wchar_t* kMarkers[] = {L"first.ini", nullptr, L"third.ini"};

class FolderLookup : public test::StageTest {
 protected:
  // What the lookup stores in the place of an older text; on failure it has to be nothing, with code 3.
  static std::wstring Look(const FolderQuery& query) {
    std::wstring out = L"older";
    const DWORD result = LookupFolder(out, query);
    EXPECT_EQ(result, GetLastError());
    EXPECT_EQ(out.empty() ? 3u : 0u, result);
    return out;
  }
};

TEST_F(FolderLookup, TakesTheRegistrysWordThenTheBasesSubFolderThenTheBase) {
  test::SetText(kKey, L"Value", L"Q:\\nowhere\\\\");
  EXPECT_EQ(L"Q:\\nowhere", Look({.value_name = L"Value", .key_path = kKey, .markers = kMarkers, .mode = 1})) << "unchecked";
  EXPECT_EQ(L"", Look({.value_name = L"Value", .key_path = kKey, .sub_folder = L""})) << "with a sub-folder it is checked";
  EXPECT_EQ(L"", Look({.value_name = L"Value", .key_path = L"Software\\Missing"}));

  const std::wstring base = AddFolder(L"base");
  test::SetText(kKey, L"Value", Path(L"registry"));
  const FolderQuery query{.value_name = L"Value", .key_path = kKey, .default_base = base + L"\\", .sub_folder = L"sub\\"};
  EXPECT_EQ(base, Look(query));
  AddFolder(L"base\\sub");
  EXPECT_EQ(base + L"\\sub", Look(query));
  AddFolder(L"registry");
  EXPECT_EQ(Path(L"registry"), Look(query));
  EXPECT_EQ(L"", Look({.value_name = L"Missing", .key_path = kKey, .default_base = Path(L"none"), .sub_folder = L"sub"}));
}

TEST_F(FolderLookup, FoldersPassTheCheckOfTheirMode) {
  AddFile(L"f\\first.ini");
  AddFile(L"all\\first.ini");
  AddFile(L"all\\third.ini");
  AddFolder(L"folder\\first.ini");
  AddFile(L"file");
  const struct {
    const wchar_t* folder;
    int mode;
    bool expected;
    Markers markers = kMarkers;
  } cases[] = {
      {L"folder", 1, false},  // a directory is no marker
      {L"f", 1, true},
      {L"f", 2, true},  // an absent entry counts as found
      {L"f", 3, false},
      {L"all", 4, true},
      {L"missing", 1, true, {}},  // no list, no marker to miss
      {L"new", kMustExist, false},
      {L"new", kCreateIfMissing, true},
      {L"new", kMustExist, true},
      {L"no\\parent", kCreateIfMissing, false},
      {L"file", kCreateIfMissing, false},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, VerifyFolder(Path(c.folder), c.markers, c.mode)) << "row " << (&c - cases);
}

// A process under WOW64, as GetProcAddress shows it to the optional-function table, and the state of its redirection.
bool redirection = true;
BOOL WINAPI UnderWow64(HANDLE, BOOL* wow64) { return *wow64 = TRUE; }
BOOLEAN WINAPI SwitchRedirection(BOOLEAN enable) { return std::exchange(redirection, enable != FALSE); }

TEST_F(FolderLookup, TouchesTheFileSystemWithoutRedirection) {
  {
    const ImportFake<decltype(GetProcAddress)> lookup(
        "kernel32.dll", "GetProcAddress", [](auto real, HMODULE module, std::string name) {
          if (name == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&UnderWow64));
          if (name != "Wow64EnableWow64FsRedirection") return real(module, name.c_str());
          return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&SwitchRedirection));
        });
    ASSERT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
  }
  std::string calls;
  const auto note = [&](char call) { calls += redirection ? '!' : call; };
  {
    const ImportFake<decltype(GetFileAttributesW)> look(
        "kernel32.dll", "GetFileAttributesW", [&](auto...) { return note('l'), INVALID_FILE_ATTRIBUTES; });
    const ImportFake<decltype(CreateDirectoryW)> make(
        "kernel32.dll", "CreateDirectoryW", [&](auto...) { return note('m'), FALSE; });
    const ImportFake<decltype(GetCurrentDirectoryW)> current(
        "kernel32.dll", "GetCurrentDirectoryW", [&](auto...) { return note('c'), 0; });
    EXPECT_FALSE(VerifyFolder(L"C:\\x", kMarkers, 1));
    EXPECT_FALSE(VerifyFolder(L"C:\\x", {}, kCreateIfMissing));
    const test::ScopedVariable temp(L"TEMP", nullptr), tmp(L"TMP", nullptr);
    LibraryFolders folders;
    folders.data = L"settled";
    SettleLibraryFolders(folders);
    EXPECT_EQ(L"_corvid_", folders.temp);
  }
  EXPECT_EQ("llmlclm", calls);
  EXPECT_TRUE(redirection);
  root::OptionalTableRelease();
  ASSERT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects)) << "the true switch again";
  root::OptionalTableRelease();
}

}  // namespace
}  // namespace crv::instup
