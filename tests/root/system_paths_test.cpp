// Where things lie, as the system tells it: known folders, the volumes behind NT names, and its own libraries.
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <map>
#include <optional>

#include "base/format_message.h"
#include "root/known_folder.h"
#include "root/module_path.h"
#include "root/nt_path.h"
#include "root/system_library.h"
#include "support/import_fake.h"
#include "support/redirected_hive.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

using std::string_literals::operator""s;

struct Volume {
  const wchar_t* device;                    // null: it has none
  std::optional<std::wstring> mounts = {};  // each with its NUL; without any GetVolumePathNamesForVolumeNameW fails
};
const std::map<std::wstring, Volume> kMachine = {
    {L"\\\\?\\Volume{1}\\", {L"\\Device\\HarddiskVolume1", L"C:\\\0"s}},
    {L"\\\\?\\Volume{2}\\", {nullptr}},
    {L"\\\\?\\Volume{3}\\", {L"\\Device\\HarddiskVolume3", L"C:\\mnt\\data\\\0D:\\\0"s}},
    {L"\\\\?\\Volume{4}\\", {L"\\Device\\HarddiskVolume10", L""}},
    {L"\\\\?\\Volume{5}\\", {L"\\Device\\Broken"}},
};

// The functions that tell of volumes, for the machine above.
class NtPath : public testing::Test {
 protected:
  ~NtPath() override { EXPECT_EQ(0, open_searches_); }

 private:
  BOOL NextVolume(wchar_t* name) {
    if (next_ == kMachine.end()) return SetLastError(ERROR_NO_MORE_FILES), FALSE;
    return std::wcscpy(name, next_++->first.c_str()), TRUE;
  }

  decltype(kMachine)::const_iterator next_;
  int open_searches_ = 0;
  test::ImportFake<decltype(FindFirstVolumeW)> first_{"kernel32.dll", "FindFirstVolumeW", [this](auto, wchar_t* name, DWORD) {
                                                        next_ = kMachine.begin();
                                                        return NextVolume(name), ++open_searches_, HANDLE{&open_searches_};
                                                      }};
  test::ImportFake<decltype(FindNextVolumeW)> following_{"kernel32.dll", "FindNextVolumeW",
                                                         [this](auto, HANDLE, wchar_t* name, DWORD) { return NextVolume(name); }};
  test::ImportFake<decltype(FindVolumeClose)> close_{
      "kernel32.dll", "FindVolumeClose", [this](auto, HANDLE) { return --open_searches_, SetLastError(0xBAD), TRUE; }};
  test::ImportFake<decltype(QueryDosDeviceW)> devices_{
      "kernel32.dll", "QueryDosDeviceW", [](auto, auto name, auto device, auto) {
        const Volume& volume = kMachine.at(std::wstring(L"\\\\?\\") + name + L"\\");
        return volume.device ? (std::wcscpy(device, volume.device), DWORD{100}) : DWORD{0};
      }};
  test::ImportFake<decltype(GetVolumePathNamesForVolumeNameW)> mounts_{
      "kernel32.dll", "GetVolumePathNamesForVolumeNameW", [](auto, auto name, wchar_t* list, DWORD size, DWORD* needed) {
        const Volume& volume = kMachine.at(name);
        if (!volume.mounts) return SetLastError(ERROR_INVALID_NAME), FALSE;
        *needed = volume.mounts->size() + 1;
        if (size < *needed) return SetLastError(ERROR_MORE_DATA), FALSE;
        return std::copy_n(volume.mounts->c_str(), *needed, list), TRUE;
      }};
};

TEST_F(NtPath, ConvertsByItsTableAndEndsEverySearch) {
  const std::wstring windows = GetKnownFolderPath(0x24);
  const struct {
    std::wstring path, expected;
    std::string thrown = "nothing";
  } cases[] = {
      {L"\\Device\\Mup\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
      {L"\\Device\\LanmanRedirector\\s\\Device\\LanmanRedirector\\t", L"\\\\s\\\\t"},  // every occurrence
      {L"\\device\\MUP\\server\\x", L"\\device\\MUP\\server\\x"},                      // recognised, but in another case
      {L"\\SYSTEMROOT\\a\\SystemRoot\\b", L"\\SYSTEMROOT\\a" + windows + L"\\b"},
      {L"\\Device\\HarddiskVolume1\\dir\\f", L"C:\\dir\\f"},
      {L"\\Device\\HarddiskVolume3\\f", L"C:\\mnt\\data\\f"},
      {L"\\Device\\HarddiskVolume10\\f", L"\\\\?\\Volume{4}\\f"},
      {L"\\Device\\Broken\\f", L"", "error 0000007b Unable to retrieve volume paths for volume '\\\\?\\Volume{5}\\'!"},
      {L"\\Device\\\x00FC", L"", "error 00000003 Unable to convert NT path '\\Device\\\xC3\xBC' to a volume GUID path!"},
      {L"", L"", "error 00000057 "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    std::wstring path;
    EXPECT_EQ(c.thrown, test::Thrown([&] { path = NtPathToWin32Path(c.path); }));
    EXPECT_EQ(c.expected, path);
  }
}

// Under WOW64 the system's libraries of this process do not lie where a path says that names them, and a 64-bit program's image does
// not where this process would look.
TEST(SystemPaths, NameTheSystemsOwnFilesWhereTheyAre) {
  wchar_t libraries[MAX_PATH], windows[MAX_PATH];
  GetWindowsDirectoryW(windows, MAX_PATH);
  const bool wow64 = GetSystemWow64DirectoryW(libraries, MAX_PATH) != 0;
  if (!wow64) GetSystemDirectoryW(libraries, MAX_PATH);
  EXPECT_STRCASEEQ(ToUtf8(libraries + L"\\kernel32.dll"s).c_str(), ToUtf8(GetModulePath(GetModuleHandleW(L"kernel32"))).c_str());

  STARTUPINFOW startup = {.cb = sizeof(startup)};
  PROCESS_INFORMATION started = {};
  const std::wstring program = windows + (wow64 ? L"\\sysnative\\cmd.exe"s : L"\\system32\\cmd.exe"s);
  ASSERT_TRUE(
      CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &startup, &started));
  wchar_t image[MAX_PATH] = {};
  EXPECT_NE(0u, GetProcessImageFileNameW(started.hProcess, image, MAX_PATH));
  EXPECT_STRCASEEQ(ToUtf8(windows + L"\\system32\\cmd.exe"s).c_str(), ToUtf8(NtPathToWin32Path(image)).c_str());
  TerminateProcess(started.hProcess, 0), CloseHandle(started.hThread), CloseHandle(started.hProcess);
}

TEST(KnownFolder, FallsBackForTwoFoldersAndReportsEveryFailure) {
  wchar_t windows[MAX_PATH];
  GetWindowsDirectoryW(windows, MAX_PATH);
  const struct {
    std::uint32_t csidl;
    HRESULT shell;
    std::wstring registry, expected;
    std::string thrown = "nothing";
  } cases[] = {
      {0x8024, S_FALSE, L"", windows},
      {0x8023, E_FAIL, L"", L"", "error 00000002 Unable to retrieve a path of the known folder (32803)!"},
      {0x23, S_FALSE, std::wstring(261, L'x'), std::wstring(260, L'x')},
      {0x26, E_INVALIDARG, L"", L"", "error 80070057 Unable to retrieve a path of the known folder (38)!"},
  };
  const test::RedirectedHive hive;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportFake<decltype(SHGetFolderPathW)> shell("shell32.dll", "SHGetFolderPathW", [&](auto...) { return c.shell; });
    SHSetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders",
                c.registry.empty() ? L"another" : L"Common AppData", REG_SZ, c.registry.c_str(),
                c.registry.size() * sizeof(wchar_t));
    std::wstring folder;
    EXPECT_EQ(c.thrown, test::Thrown([&] { folder = GetKnownFolderPath(c.csidl); }));
    EXPECT_EQ(c.expected, folder);
  }
}

TEST(SystemLibrary, IsTakenFromTheSystemFolderOnceAndFromNowhereElse) {
  wchar_t own[MAX_PATH];
  GetSystemDirectoryW(own, MAX_PATH);
  std::wstring folder = own;
  std::wstring asked;
  const test::ImportFake<decltype(GetSystemDirectoryW)> system("kernel32.dll", "GetSystemDirectoryW",
                                                               [&](auto, wchar_t* buffer, UINT size) {
                                                                 SetLastError(ERROR_ACCESS_DENIED);
                                                                 if (folder.size() >= size)
                                                                   return static_cast<UINT>(folder.size() + 1);
                                                                 wcscpy(buffer, folder.c_str());
                                                                 return static_cast<UINT>(folder.size());
                                                               });
  const test::ImportFake<decltype(LoadLibraryW)> load("kernel32.dll", "LoadLibraryW", [&](auto, const wchar_t* name) {
    return asked += name, SetLastError(ERROR_MOD_NOT_FOUND), HMODULE{};
  });
  EXPECT_EQ(GetModuleHandleW(L"kernel32"), GetSystemLibrary(L"kernel32.dll"));  // which is loaded
  EXPECT_EQ(L"", asked);
  EXPECT_EQ(nullptr, FindSystemFunction<decltype(GetTickCount)>(L"none.dll", "GetTickCount"));
  EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, GetLastError());
  EXPECT_EQ(own + std::wstring(L"\\none.dll"), asked);
  for (const std::size_t length : {0, MAX_PATH, MAX_PATH - 1, MAX_PATH - 8}) {  // with the name there is no room for a NUL
    folder.assign(length, L'x');
    EXPECT_EQ(nullptr, GetSystemLibrary(L"six.dll"));
    EXPECT_EQ(length ? DWORD{ERROR_BUFFER_OVERFLOW} : DWORD{ERROR_ACCESS_DENIED}, GetLastError());
  }
  EXPECT_EQ(own + std::wstring(L"\\none.dll"), asked);
}

TEST(SystemLibrary, StaysWhenThoseWhoLoadedItFreeIt) {
  constexpr wchar_t kLibrary[] = L"cabinet.dll";
  ASSERT_EQ(nullptr, GetModuleHandleW(kLibrary));
  const HMODULE loaded = LoadLibraryW(kLibrary);
  EXPECT_EQ(loaded, GetSystemLibrary(kLibrary));
  FreeLibrary(loaded);
  EXPECT_EQ(loaded, GetModuleHandleW(kLibrary));
}

}  // namespace
}  // namespace crv::root
