#include "instup/folder_lookup.h"

#include <utility>

#include "instup/stage.h"
#include "root/optional_functions.h"
#include "support/import_fake.h"

namespace crv::instup {
namespace {

using crv::test::ImportFake;

constexpr const wchar_t* kKey = L"Software\\Folders";
constexpr const wchar_t* kMarkers[] = {L"first.ini", nullptr, L"third.ini"};

using FolderLookup = test::StageTest;

TEST_F(FolderLookup, AnUncheckedValueOfTheRegistryCountsIfItIsAWholePath) {
  const FolderQuery query{.value_name = L"Value", .key_path = kKey};
  std::wstring folder = L"older";
  EXPECT_EQ(3u, LookupFolder(folder, query)) << "without a key";
  EXPECT_EQ(L"", folder);
  for (const wchar_t* partial : {L"", L"folder", L"\\folder"}) {
    test::SetText(kKey, L"Value", partial);
    EXPECT_EQ(3u, LookupFolder(folder, query)) << partial;
  }
  test::SetText(kKey, L"Value", L"Q:\\nowhere\\\\");
  EXPECT_EQ(0u, LookupFolder(folder, query));
  EXPECT_EQ(L"Q:\\nowhere", folder);
}

TEST_F(FolderLookup, FoldersPassTheCheckOfTheirMode) {
  AddFile(L"f\\first.ini");
  AddFile(L"all\\first.ini");
  AddFile(L"all\\third.ini");
  AddFolder(L"folder\\first.ini");
  const struct {
    const wchar_t* folder;
    int mode;
    bool expected;
  } cases[] = {
      {L"folder", 1, false},  // a directory is no marker
      {L"f", 2, true},        // an absent entry counts as found
      {L"f", 1, true},
      {L"f", 3, false},
      {L"all", 4, true},
      {L"new", kMustExist, false},
      {L"new", kCreateIfMissing, true},
      {L"new", kMustExist, true},
      {L"no\\parent", kCreateIfMissing, false},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, VerifyFolder(Path(c.folder), kMarkers, c.mode)) << "row " << (&c - cases);
}

// A process under WOW64, as GetProcAddress shows it to the optional-function table, and the state of its redirection.
bool redirection = true;
BOOL WINAPI UnderWow64(HANDLE, BOOL* wow64) { return *wow64 = TRUE; }
BOOLEAN WINAPI SwitchRedirection(BOOLEAN enable) { return SetLastError(0xBAD), std::exchange(redirection, enable != FALSE); }

TEST_F(FolderLookup, TouchesTheFileSystemWithoutRedirection) {
  const ImportFake<decltype(GetProcAddress)> lookup(
      "kernel32.dll", "GetProcAddress", [](auto real, HMODULE module, std::string name) {
        if (name == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&UnderWow64));
        if (name != "Wow64EnableWow64FsRedirection") return real(module, name.c_str());
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&SwitchRedirection));
      });
  ASSERT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
  std::string calls;
  const auto note = [&](char call) { calls += redirection ? '!' : call; };
  const ImportFake<decltype(GetFileAttributesW)> look(
      "kernel32.dll", "GetFileAttributesW", [&](auto...) { return note('l'), SetLastError(5), INVALID_FILE_ATTRIBUTES; });
  const ImportFake<decltype(CreateDirectoryW)> make("kernel32.dll", "CreateDirectoryW",
                                                    [&](auto...) { return note('m'), FALSE; });
  EXPECT_FALSE(VerifyFolder(L"C:\\x", kMarkers, 1));
  EXPECT_EQ(5u, GetLastError());
  EXPECT_FALSE(VerifyFolder(L"C:\\x", {}, kCreateIfMissing));
  EXPECT_EQ("llml", calls);
  EXPECT_TRUE(redirection);
  root::OptionalTableRelease();
}

}  // namespace
}  // namespace crv::instup
