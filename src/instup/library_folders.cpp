#include "instup/library_folders.h"

#include <windows.h>

#include "instup/folder_lookup.h"
#include "instup/path_text.h"
#include "root/optional_functions.h"

namespace crv::instup {
namespace {

constexpr DWORD kLongPathChars = 32768;
constexpr const wchar_t* kProgramMarkers[] = {L"crvCmnOS.dll"};
constexpr const wchar_t* kDataMarkers[] = {L"corvid5.ini"};

// Runs a function of the shape GetCurrentDirectoryW(size, buffer) with room for the longest path. Empty when it fails.
template <typename Query>
std::wstring ReadLongPath(Query query) {
  std::wstring path(kLongPathChars, L'\0');
  const DWORD length = query(path.data(), kLongPathChars);
  path.resize(length < kLongPathChars ? length : 0);
  return path;
}

std::wstring EnvironmentVariable(const wchar_t* name) {
  return ReadLongPath([name](wchar_t* buffer, DWORD chars) { return GetEnvironmentVariableW(name, buffer, chars); });
}

std::wstring CurrentDirectory() {
  return ReadLongPath([](wchar_t* buffer, DWORD chars) {
    return root::WithoutFsRedirection([=] { return GetCurrentDirectoryW(chars, buffer); });
  });
}

std::wstring SystemTempFolder() {
  for (const wchar_t* const name : {L"TEMP", L"TMP"}) {
    std::wstring folder = EnvironmentVariable(name);
    if (!folder.empty()) return folder;
  }
  return CurrentDirectory();
}

// Room for the longest path in both places that ask for it: a path cut off would name another folder.
std::wstring ExecutablePath() {
  return ReadLongPath([](wchar_t* buffer, DWORD chars) { return GetModuleFileNameW(nullptr, buffer, chars); });
}

// The text before the last backslash; empty when there is none.
std::wstring CutAtLastBackslash(const std::wstring& path) {
  const std::size_t backslash = path.rfind(L'\\');
  return backslash == std::wstring::npos ? std::wstring() : path.substr(0, backslash);
}

// The folder of the executable in its short form. Empty when it cannot be had, which means no default base: a made-up name would
// be looked up in the current directory, where anybody may have put a folder of that name.
std::wstring ExecutableBase() {
  std::wstring path = ExecutablePath();
  wchar_t short_path[MAX_PATH];
  const DWORD length = GetShortPathNameW(path.c_str(), short_path, MAX_PATH);
  if (length > 0 && length < MAX_PATH) path.assign(short_path, length);
  if (!PathExists(path)) return {};
  return CutAtLastBackslash(path);
}

// A registry value counts as it stands, without a check.
void SettleTempFolder(LibraryFolders& folders) {
  if (!folders.temp.empty()) return;
  const FolderQuery query{.value_name = kTempFolderValue, .key_path = folders.product_key.c_str(), .mode = kCreateIfMissing};
  if (LookupFolder(folders.temp, query) != ERROR_SUCCESS) folders.temp = AppendPath(SystemTempFolder(), L"_corvid_");
  if (!DirectoryExists(folders.temp)) MakeDirectory(folders.temp, nullptr);
}

bool FindProgramAndDataFolders(LibraryFolders& folders) {
  const std::wstring base = ExecutableBase();
  const FolderQuery program{.value_name = kProgramFolderValue,
                            .key_path = folders.product_key.c_str(),
                            .default_base = base,
                            .sub_folder = L"",
                            .markers = kProgramMarkers,
                            .mode = 1};
  const FolderQuery data{.value_name = kDataFolderValue,
                         .key_path = folders.product_key.c_str(),
                         .default_base = base,
                         .sub_folder = L"data",
                         .markers = kDataMarkers,
                         .mode = 1};
  return LookupFolder(folders.program, program) == ERROR_SUCCESS && LookupFolder(folders.data, data) == ERROR_SUCCESS;
}

// The last resort, unchecked.
void TakeExecutableFolder(LibraryFolders& folders) {
  const std::wstring folder = CutAtLastBackslash(ExecutablePath());
  if (folder.empty()) return;
  if (folders.program.empty()) folders.program = folder;
  if (folders.data.empty()) folders.data = folder + L"\\DATA";
}

}  // namespace

void SettleLibraryFolders(LibraryFolders& folders) {
  SettleTempFolder(folders);
  if (!folders.data.empty()) return;
  if (!FindProgramAndDataFolders(folders)) TakeExecutableFolder(folders);
}

void SettleDataSubFolders(LibraryFolders& folders) {
  for (FolderSetting& setting : folders.settings) {
    const FolderQuery query{.value_name = setting.value_name,
                            .key_path = folders.product_key.c_str(),
                            .default_base = folders.data,
                            .sub_folder = setting.default_sub_folder,
                            .mode = kCreateIfMissing};
    DWORD result = LookupFolder(setting.folder, query);
    // While the data folder is missing, no folder can be made in it: the lookup makes the data folder and settles for that. Asked
    // again, it makes the setting's own folder.
    if (setting.folder == NormalizeFolderPath(folders.data)) result = LookupFolder(setting.folder, query);
    if (result != ERROR_SUCCESS) setting.folder = AppendPath(folders.data, setting.default_sub_folder);
  }
}

}  // namespace crv::instup
