#include "root/known_folder.h"

#include <windows.h>

#include <shlobj.h>

#include "base/exceptions.h"
#include "root/registry.h"
#include "root/system_library.h"

namespace crv::root {
namespace {

constexpr std::size_t kFolderSize = 260;  // characters
constexpr std::uint32_t kCsidlFlags = 0xFF00;

[[noreturn]] void Fail(DWORD code, std::uint32_t csidl) {
  throw exceptions::error(code, "Unable to retrieve a path of the known folder (%d)!", static_cast<int>(csidl));
}

std::wstring WindowsFolder(std::uint32_t csidl) {
  wchar_t folder[kFolderSize];
  const UINT length = GetWindowsDirectoryW(folder, kFolderSize);
  if (length == 0) Fail(GetLastError(), csidl);
  if (length > kFolderSize) Fail(ERROR_MORE_DATA, csidl);
  return std::wstring(folder, length);
}

std::wstring CommonAppDataFolder(std::uint32_t csidl) {
  std::wstring folder;
  if (!QueryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders",
                   L"Common AppData", folder, 0)) {
    Fail(GetLastError(), csidl);
  }
  if (folder.size() > kFolderSize) folder.resize(kFolderSize);
  return folder;
}

}  // namespace

std::wstring GetKnownFolderPath(std::uint32_t csidl) {
  wchar_t folder[kFolderSize];
  // S_FALSE says that the folder does not exist and leaves no path.
  const auto get = FindSystemFunction<decltype(SHGetFolderPathW)>(L"shell32.dll", "SHGetFolderPathW");
  const HRESULT result =
      get ? get(nullptr, static_cast<int>(csidl), nullptr, SHGFP_TYPE_CURRENT, folder) : HRESULT_FROM_WIN32(GetLastError());
  if (result == S_OK) return folder;
  switch (csidl & ~kCsidlFlags) {
    case CSIDL_WINDOWS: return WindowsFolder(csidl);
    case CSIDL_COMMON_APPDATA: return CommonAppDataFolder(csidl);
    default: Fail(static_cast<DWORD>(result), csidl);
  }
}

}  // namespace crv::root
