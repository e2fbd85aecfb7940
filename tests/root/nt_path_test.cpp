#include "root/nt_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "platform/mapped_file_name.h"
#include "root/known_folder.h"
#include "root/module_path.h"
#include "support/import_patch.h"
#include "support/thrown.h"

namespace crv::root {
namespace {

struct Volume {
  const wchar_t* guid;        // of the name "\\?\Volume{guid}\"
  const wchar_t* device;      // null: QueryDosDeviceW fails
  const wchar_t* mount_list;  // as the system returns it, without the last NUL
};
constexpr Volume kMachine[] = {
    {L"1", L"\\Device\\HarddiskVolume1", L"C:\\\0"}, {L"2", nullptr, L"E:\\\0"}, {L"3", L"\\Device\\HarddiskVolume3", L"C:\\mnt\\data\\\0D:\\\0"},
    {L"4", L"\\Device\\HarddiskVolume10", L""},      {L"5", L"\\Device\\Broken", nullptr},
};

std::size_t visible_volumes;
DWORD search_ends_with;
std::size_t next_volume;
int open_searches;

std::wstring NameOf(const Volume& volume) { return L"\\\\?\\Volume{" + std::wstring(volume.guid) + L"}\\"; }

BOOL WINAPI NextVolume(HANDLE, wchar_t* name, DWORD size) {
  EXPECT_EQ(64u, size);
  if (next_volume == visible_volumes) return SetLastError(search_ends_with), FALSE;
  std::wcscpy(name, NameOf(kMachine[next_volume++]).c_str());
  return TRUE;
}

HANDLE WINAPI FirstVolume(wchar_t* name, DWORD size) {
  next_volume = 0;
  if (!NextVolume(nullptr, name, size)) return INVALID_HANDLE_VALUE;
  ++open_searches;
  return reinterpret_cast<HANDLE>(1);
}

BOOL WINAPI CloseSearch(HANDLE) {
  --open_searches;
  SetLastError(0xBAD);
  return TRUE;
}

DWORD WINAPI DeviceOf(const wchar_t* name, wchar_t* device, DWORD size) {
  EXPECT_EQ(260u, size);
  for (const Volume& volume : kMachine) {
    if (NameOf(volume) != L"\\\\?\\" + std::wstring(name) + L"\\" || !volume.device) continue;
    std::wcscpy(device, volume.device);
    return std::wcslen(device) + 2;
  }
  SetLastError(ERROR_FILE_NOT_FOUND);
  return 0;
}

BOOL WINAPI MountsOf(const wchar_t* name, wchar_t* list, DWORD size, DWORD* needed) {
  for (const Volume& volume : kMachine) {
    if (NameOf(volume) != name || !volume.mount_list) continue;
    *needed = 1;
    for (const wchar_t* at = volume.mount_list; *at; at += std::wcslen(at) + 1) *needed += std::wcslen(at) + 1;
    if (size < *needed) return SetLastError(ERROR_MORE_DATA), FALSE;
    std::copy_n(volume.mount_list, *needed, list);
    return TRUE;
  }
  SetLastError(ERROR_INVALID_NAME);
  return FALSE;
}

DWORD WINAPI NoMappedName(HANDLE, void*, wchar_t*, DWORD) {
  SetLastError(ERROR_INVALID_ADDRESS);
  return 0;
}

TEST(NtPath, ConvertsByItsTableAndEndsEverySearch) {
  const test::ImportPatch patches[] = {
      {"kernel32.dll", "FindFirstVolumeW", reinterpret_cast<void*>(&FirstVolume)},
      {"kernel32.dll", "FindNextVolumeW", reinterpret_cast<void*>(&NextVolume)},
      {"kernel32.dll", "FindVolumeClose", reinterpret_cast<void*>(&CloseSearch)},
      {"kernel32.dll", "QueryDosDeviceW", reinterpret_cast<void*>(&DeviceOf)},
      {"kernel32.dll", "GetVolumePathNamesForVolumeNameW", reinterpret_cast<void*>(&MountsOf)},
  };
  constexpr DWORD kEnd = ERROR_NO_MORE_FILES;
  const std::wstring windows = GetKnownFolderPath(0x24);
  struct Case {
    std::wstring path, expected;
    std::string thrown = "nothing";
    std::size_t volumes = std::size(kMachine);
    DWORD search_ends_with = kEnd;
  };
  const Case cases[] = {
      {L"\\Device\\Mup\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
      {L"\\Device\\LanmanRedirector\\s\\Device\\LanmanRedirector\\t", L"\\\\s\\\\t"},  // every occurrence
      {L"\\device\\MUP\\server\\x", L"\\device\\MUP\\server\\x"},                      // recognised, but in another case
      {L"\\DEVICE\\LanmanRedirector\\s", L"\\DEVICE\\LanmanRedirector\\s"},
      {L"\\SystemRoot\\system32\\a.dll", windows + L"\\system32\\a.dll"},
      {L"\\SYSTEMROOT\\a\\SystemRoot\\b", L"\\SYSTEMROOT\\a" + windows + L"\\b"},
      {L"\\Device\\HarddiskVolume1\\dir\\f", L"C:\\dir\\f"},
      {L"\\Device\\HarddiskVolume3\\f", L"C:\\mnt\\data\\f"},
      {L"\\Device\\HarddiskVolume10\\f", L"\\\\?\\Volume{4}\\f"},
      {L"\\device\\harddiskVolume1\\f", L"", "error 0000007b Unable to retrieve volume paths for volume '\\device\\'!"},
      {L"\\Device\\Broken\\f", L"", "error 0000007b Unable to retrieve volume paths for volume '\\\\?\\Volume{5}\\'!"},
      {L"\\Device\\HarddiskVolume1", L"", "error 00000003 Unable to convert NT path '\\Device\\HarddiskVolume1' to a volume GUID path!"},
      {L"\\Device\\\x00FC", L"", "error 00000003 Unable to convert NT path '\\Device\\\xC3\xBC' to a volume GUID path!"},
      {L"\\Device\\Mup", L"", "error 00000057 Unable to convert NT path '\\Device\\Mup' to a volume GUID path!", 2, ERROR_INVALID_PARAMETER},
      {L"\\Device\\X\\", L"", "error 00000005 Unable to enumerate volumes!", 0, ERROR_ACCESS_DENIED},
      {L"", L"", "error 00000057 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    visible_volumes = c.volumes;
    search_ends_with = c.search_ends_with;
    std::wstring path;
    EXPECT_EQ(c.thrown, test::Thrown([&] { path = NtPathToWin32Path(c.path); }));
    EXPECT_EQ(c.expected, path);
    EXPECT_EQ(0, open_searches);
  }
  EXPECT_EQ("error 0000007b Unable to retrieve volume paths for volume 'C:'!", test::Thrown([] { VolumeGuidPathToWin32Path(L"C:"); }));
}

TEST(ModulePath, LeadsFromEveryDriveToTheFile) {
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  EXPECT_EQ(program, GetModulePath(nullptr));

  const std::wstring copy = GetKnownFolderPath(0x24) + L"\\Temp\\crv path probe \x00E4.dll";
  ASSERT_TRUE(CopyFileW((std::filesystem::path(program).parent_path() / L"path_probe.dll").c_str(), copy.c_str(), FALSE));
  const HMODULE probe = LoadLibraryW(copy.c_str());
  ASSERT_TRUE(probe) << GetLastError();
  wchar_t own_path[MAX_PATH] = {};
  reinterpret_cast<void (*)(wchar_t*, std::size_t)>(reinterpret_cast<void*>(GetProcAddress(probe, "PathOfProbe")))(own_path, MAX_PATH);
  EXPECT_EQ(copy, own_path);
  EXPECT_EQ(copy, GetModulePath(probe));
  FreeLibrary(probe);
  EXPECT_TRUE(DeleteFileW(copy.c_str()));
}

TEST(ModulePath, ReportsAModuleWithoutAFile) {
  EXPECT_NE("nothing", test::Thrown([] { GetModulePath(reinterpret_cast<HMODULE>(0x1000)); }));
  const test::ImportPatch patch("psapi.dll", "GetMappedFileNameW", reinterpret_cast<void*>(&NoMappedName));
  EXPECT_EQ("error 000001e7 Unable to retrieve the path of the module!", test::Thrown([] { GetModulePath(nullptr); }));
}

}  // namespace
}  // namespace crv::root
