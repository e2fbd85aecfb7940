#include "root/nt_path.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <filesystem>
#include <optional>

#include "root/known_folder.h"
#include "root/module_path.h"
#include "support/import_fake.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

struct Volume {
  std::wstring name;                        // without its trailing backslash
  const wchar_t* device;                    // null: QueryDosDeviceW fails
  std::optional<std::wstring> mounts = {};  // each with its NUL; without any GetVolumePathNamesForVolumeNameW fails
};

TEST(NtPath, ConvertsByItsTableAndEndsEverySearch) {
  using namespace std::string_literals;
  const Volume machine[] = {{L"\\\\?\\Volume{1}", L"\\Device\\HarddiskVolume1", L"C:\\\0"s},
                            {L"\\\\?\\Volume{2}", nullptr},
                            {L"\\\\?\\Volume{3}", L"\\Device\\HarddiskVolume3", L"C:\\mnt\\data\\\0D:\\\0"s},
                            {L"\\\\?\\Volume{4}", L"\\Device\\HarddiskVolume10", L""},
                            {L"\\\\?\\Volume{5}", L"\\Device\\Broken"}};
  const std::wstring windows = GetKnownFolderPath(0x24);
  struct Case {
    std::wstring path, expected;
    std::string thrown = "nothing";
    std::size_t volumes = 5;
    DWORD search_ends_with = ERROR_NO_MORE_FILES;
  };
  const Case cases[] = {
      {L"\\Device\\Mup\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
      {L"\\Device\\LanmanRedirector\\s\\Device\\LanmanRedirector\\t", L"\\\\s\\\\t"},  // every occurrence
      {L"\\device\\MUP\\server\\x", L"\\device\\MUP\\server\\x"},                      // recognised, but in another case
      {L"\\SystemRoot\\system32\\a.dll", windows + L"\\system32\\a.dll"},
      {L"\\SYSTEMROOT\\a\\SystemRoot\\b", L"\\SYSTEMROOT\\a" + windows + L"\\b"},
      {L"\\Device\\HarddiskVolume1\\dir\\f", L"C:\\dir\\f"},
      {L"\\Device\\HarddiskVolume3\\f", L"C:\\mnt\\data\\f"},
      {L"\\Device\\HarddiskVolume10\\f", L"\\\\?\\Volume{4}\\f"},
      {L"\\device\\harddiskVolume1\\f", L"", "error 0000007b Unable to retrieve volume paths for volume '\\device\\'!"},
      {L"\\Device\\Broken\\f", L"", "error 0000007b Unable to retrieve volume paths for volume '\\\\?\\Volume{5}\\'!"},
      {L"\\Device\\HarddiskVolume1", L"",
       "error 00000003 Unable to convert NT path '\\Device\\HarddiskVolume1' to a volume GUID path!"},
      {L"\\Device\\\x00FC", L"", "error 00000003 Unable to convert NT path '\\Device\\\xC3\xBC' to a volume GUID path!"},
      {L"\\Device\\Mup", L"", "error 00000057 Unable to convert NT path '\\Device\\Mup' to a volume GUID path!", 2, 87},
      {L"\\Device\\X\\", L"", "error 00000005 Unable to enumerate volumes!", 0, 5},
      {L"", L"", "error 00000057 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    std::size_t next = 0;
    int open_searches = 0;
    const auto next_volume = [&](wchar_t* name) {
      if (next == c.volumes) return SetLastError(c.search_ends_with), FALSE;
      std::wcscpy(name, (machine[next++].name + L"\\").c_str());
      return TRUE;
    };
    const test::ImportFake<decltype(FindFirstVolumeW)> first("kernel32.dll", "FindFirstVolumeW", [&](auto, wchar_t* name, DWORD) {
      return next_volume(name) ? ++open_searches, HANDLE{&open_searches} : INVALID_HANDLE_VALUE;
    });
    const test::ImportFake<decltype(FindNextVolumeW)> following(
        "kernel32.dll", "FindNextVolumeW", [&](auto, HANDLE, wchar_t* name, DWORD) { return next_volume(name); });
    const test::ImportFake<decltype(FindVolumeClose)> close(
        "kernel32.dll", "FindVolumeClose", [&](auto, HANDLE) { return --open_searches, SetLastError(0xBAD), TRUE; });
    const test::ImportFake<decltype(QueryDosDeviceW)> devices(
        "kernel32.dll", "QueryDosDeviceW", [&](auto, auto name, auto device, auto) {
          for (const Volume& volume : machine) {
            if (volume.device && volume.name == std::wstring(L"\\\\?\\") + name)
              return std::wcscpy(device, volume.device), DWORD{100};
          }
          return DWORD{0};
        });
    const test::ImportFake<decltype(GetVolumePathNamesForVolumeNameW)> mounts(
        "kernel32.dll", "GetVolumePathNamesForVolumeNameW", [&](auto, auto name, wchar_t* list, DWORD size, DWORD* needed) {
          for (const auto& volume : machine) {
            if (!volume.mounts || volume.name + L"\\" != name) continue;
            *needed = volume.mounts->size() + 1;
            return size < *needed ? SetLastError(ERROR_MORE_DATA),
                   FALSE          : (std::copy_n(volume.mounts->c_str(), *needed, list), TRUE);
          }
          return SetLastError(ERROR_INVALID_NAME), FALSE;
        });
    std::wstring path;
    EXPECT_EQ(c.thrown, test::Thrown([&] { path = NtPathToWin32Path(c.path); }));
    EXPECT_EQ(c.expected, path);
    EXPECT_EQ(0, open_searches);
  }
  EXPECT_EQ("error 0000007b Unable to retrieve volume paths for volume 'C:'!",
            test::Thrown([] { VolumeGuidPathToWin32Path(L"C:"); }));
}

// The program lies on one drive; the library, whose name is no plain text, on another.
TEST(ModulePath, LeadsFromEveryDriveToTheFile) {
  wchar_t program[MAX_PATH], own_path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  EXPECT_EQ(program, GetModulePath(nullptr));

  const std::wstring copy = GetKnownFolderPath(0x24) + L"\\Temp\\crv path probe \x00E4.dll";
  ASSERT_TRUE(CopyFileW((std::filesystem::path(program).parent_path() / L"path_probe.dll").c_str(), copy.c_str(), FALSE));
  const HMODULE probe = LoadLibraryW(copy.c_str());
  ASSERT_TRUE(probe) << GetLastError();
  reinterpret_cast<void (*)(wchar_t*, std::size_t)>(reinterpret_cast<void*>(GetProcAddress(probe, "PathOfProbe")))(own_path,
                                                                                                                   MAX_PATH);
  EXPECT_EQ(copy, own_path);
  EXPECT_EQ(copy, GetModulePath(probe));
  FreeLibrary(probe);
  EXPECT_TRUE(DeleteFileW(copy.c_str()));

  const test::ImportFake<decltype(GetMappedFileNameW)> fake("psapi.dll", "GetMappedFileNameW",
                                                            [](auto...) { return SetLastError(ERROR_INVALID_ADDRESS), 0; });
  EXPECT_EQ("error 000001e7 Unable to retrieve the path of the module!", test::Thrown([] { GetModulePath(nullptr); }));
}

}  // namespace
}  // namespace crv::root
