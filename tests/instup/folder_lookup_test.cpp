#include "instup/folder_lookup.h"

#include <string_view>
#include <utility>

#include "instup/library_folders.h"
#include "instup/stage.h"
#include "root/optional_functions.h"

namespace crv::instup {
namespace {

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

TEST_F(FolderLookup, WithoutSubFolderARegistryValueIsNotChecked) {
  test::SetText(kKey, L"Value", L"Q:\\nowhere\\\\");
  EXPECT_EQ(L"Q:\\nowhere", Look({.value_name = L"Value", .key_path = kKey, .markers = kMarkers, .mode = 1}));
  test::SetText(kKey, L"Value", L"Q:\\");
  EXPECT_EQ(L"Q:\\", Look({.value_name = L"Value", .key_path = kKey}));
  EXPECT_EQ(L"", Look({.value_name = L"Value", .key_path = kKey, .sub_folder = L""})) << "with one it is";
  EXPECT_EQ(L"", Look({.value_name = L"Value", .key_path = L"Software\\Missing"}));
}

TEST_F(FolderLookup, FallsBackToTheBasesSubFolderAndThenToTheBase) {
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

TEST_F(FolderLookup, MarkersHaveToBeFilesUpToTheirNumber) {
  const std::wstring folder = AddFolder(L"f");
  EXPECT_FALSE(VerifyFolder(folder, kMarkers, 1));
  AddFolder(L"f\\first.ini");
  EXPECT_FALSE(VerifyFolder(folder, kMarkers, 1)) << "a directory is no marker";
  RemoveDirectoryW(Path(L"f\\first.ini").c_str());
  AddFile(L"f\\first.ini");
  EXPECT_TRUE(VerifyFolder(folder, kMarkers, 1));
  EXPECT_TRUE(VerifyFolder(folder, kMarkers, 2)) << "an absent entry counts as found";
  EXPECT_FALSE(VerifyFolder(folder, kMarkers, 3));
  AddFile(L"f\\third.ini");
  EXPECT_TRUE(VerifyFolder(folder, kMarkers, 3));
  EXPECT_TRUE(VerifyFolder(folder, kMarkers, 4));
  EXPECT_TRUE(VerifyFolder(Path(L"missing"), {}, 1)) << "no list, no marker to miss";
}

TEST_F(FolderLookup, ModesTellWhetherTheFolderIsMade) {
  const std::wstring folder = Path(L"new");
  EXPECT_FALSE(VerifyFolder(folder, {}, kMustExist));
  EXPECT_FALSE(test::IsDirectory(folder));
  EXPECT_TRUE(VerifyFolder(folder, {}, kCreateIfMissing));
  EXPECT_TRUE(VerifyFolder(folder, {}, kMustExist));
  EXPECT_FALSE(VerifyFolder(Path(L"no\\parent"), {}, kCreateIfMissing));
  EXPECT_FALSE(VerifyFolder(AddFile(L"file"), {}, kCreateIfMissing));
}

// A process under WOW64, as GetProcAddress shows it to the optional-function table, and the state of its redirection.
bool redirection = true;
BOOL WINAPI UnderWow64(HANDLE, BOOL* wow64) { return *wow64 = TRUE; }
BOOLEAN WINAPI SwitchRedirection(BOOLEAN enable) { return std::exchange(redirection, enable != FALSE); }

FARPROC(WINAPI* real_lookup)(HMODULE, const char*) = nullptr;
FARPROC WINAPI LookUpInWow64(HMODULE module, const char* name) {
  if (std::string_view(name) == "IsWow64Process") return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&UnderWow64));
  if (std::string_view(name) == "Wow64EnableWow64FsRedirection") {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&SwitchRedirection));
  }
  return real_lookup(module, name);
}

int calls_without_redirection = 0;
void Count() {
  EXPECT_FALSE(redirection);
  ++calls_without_redirection;
}
DWORD WINAPI AttributesOf(const wchar_t*) { return Count(), INVALID_FILE_ATTRIBUTES; }
BOOL WINAPI MakeNothing(const wchar_t*, SECURITY_ATTRIBUTES*) { return Count(), FALSE; }
DWORD WINAPI NoCurrentDirectory(DWORD, wchar_t*) { return Count(), 0; }

TEST_F(FolderLookup, TouchesTheFileSystemWithoutRedirection) {
  {
    const crv::test::ImportPatch lookup("kernel32.dll", "GetProcAddress", reinterpret_cast<void*>(&LookUpInWow64));
    real_lookup = lookup.original<decltype(real_lookup)>();
    ASSERT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects));
  }
  {
    const crv::test::ImportPatch attributes("kernel32.dll", "GetFileAttributesW", reinterpret_cast<void*>(&AttributesOf));
    const crv::test::ImportPatch create("kernel32.dll", "CreateDirectoryW", reinterpret_cast<void*>(&MakeNothing));
    EXPECT_FALSE(VerifyFolder(L"C:\\x", kMarkers, 1));
    EXPECT_EQ(1, calls_without_redirection);
    EXPECT_TRUE(redirection);
    EXPECT_FALSE(VerifyFolder(L"C:\\x", {}, kCreateIfMissing));
    EXPECT_EQ(4, calls_without_redirection);
    EXPECT_TRUE(redirection);

    const crv::test::ImportPatch current("kernel32.dll", "GetCurrentDirectoryW", reinterpret_cast<void*>(&NoCurrentDirectory));
    const test::ScopedVariable temp(L"TEMP", nullptr), tmp(L"TMP", nullptr);
    LibraryFolders folders;
    folders.data = L"settled";
    SettleLibraryFolders(folders);
    EXPECT_EQ(L"_corvid_", folders.temp);
    EXPECT_EQ(7, calls_without_redirection) << "the current directory, the look at the folder and its making";
    EXPECT_TRUE(redirection);
  }
  root::OptionalTableRelease();
  ASSERT_EQ(0u, root::OptionalTableInit(root::kTableWithoutSideEffects)) << "the true switch again";
  root::OptionalTableRelease();
}

}  // namespace
}  // namespace crv::instup
