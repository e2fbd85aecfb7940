#include "root/nt_path.h"

#include <windows.h>

#include <shlobj.h>

#include <cwchar>
#include <string_view>
#include <vector>

#include "base/exceptions.h"
#include "root/known_folder.h"
#include "root/scoped_handle.h"

namespace crv::root {
namespace {

constexpr std::wstring_view kWin32Prefix = L"\\\\?\\";
constexpr DWORD kVolumeNameSize = 64;   // characters
constexpr DWORD kDeviceNameSize = 260;  // characters

bool StartsWith(const std::wstring& path, const std::wstring& prefix) {
  return _wcsnicmp(path.c_str(), prefix.c_str(), prefix.size()) == 0;
}

std::wstring ReplaceAll(std::wstring text, const std::wstring& from, const std::wstring& to) {
  for (std::size_t at = text.find(from); at != std::wstring::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// The device behind a volume name without its trailing backslash, with one of its own; empty when the system does not say.
std::wstring DeviceOfVolume(const std::wstring& volume) {
  const bool prefixed = volume.compare(0, kWin32Prefix.size(), kWin32Prefix) == 0;
  wchar_t device[kDeviceNameSize];
  if (!QueryDosDeviceW(volume.c_str() + (prefixed ? kWin32Prefix.size() : 0), device, kDeviceNameSize)) return {};
  return std::wstring(device) + L'\\';
}

}  // namespace

std::wstring NtPathToWin32Path(const std::wstring& path) {
  if (path.empty()) throw exceptions::error();
  for (const wchar_t* redirector : {L"\\Device\\LanmanRedirector\\", L"\\Device\\Mup\\"}) {
    if (StartsWith(path, redirector)) return ReplaceAll(path, redirector, L"\\\\");
  }
  const std::wstring system_root = L"\\SystemRoot\\";
  if (StartsWith(path, system_root)) return ReplaceAll(path, system_root, GetKnownFolderPath(CSIDL_WINDOWS) + L'\\');
  return VolumeGuidPathToWin32Path(NtPathToVolumeGuidPath(path));
}

std::wstring NtPathToVolumeGuidPath(const std::wstring& path) {
  wchar_t name[kVolumeNameSize];
  const ScopedVolumeSearch search(FindFirstVolumeW(name, kVolumeNameSize));
  if (!search) throw exceptions::error(GetLastError(), "Unable to enumerate volumes!");
  do {
    std::wstring volume = name;
    if (volume.ends_with(L'\\')) volume.pop_back();
    const std::wstring device = DeviceOfVolume(volume);
    if (!device.empty() && StartsWith(path, device)) return ReplaceAll(path, device, volume + L'\\');
  } while (FindNextVolumeW(search.get(), name, kVolumeNameSize));
  const DWORD ended_with = GetLastError();
  throw exceptions::error(ended_with == ERROR_NO_MORE_FILES ? ERROR_PATH_NOT_FOUND : ended_with,
                          L"Unable to convert NT path '%ls' to a volume GUID path!", path.c_str());
}

std::wstring VolumeGuidPathToWin32Path(const std::wstring& path) {
  const std::size_t separator = path.find(L'\\', kWin32Prefix.size());
  const std::wstring volume = separator == std::wstring::npos ? path : path.substr(0, separator + 1);
  DWORD length = 0;
  GetVolumePathNamesForVolumeNameW(volume.c_str(), nullptr, 0, &length);  // fails with the length
  std::vector<wchar_t> mount_points(length + 1);
  if (!GetVolumePathNamesForVolumeNameW(volume.c_str(), mount_points.data(), length, &length)) {
    throw exceptions::error(GetLastError(), L"Unable to retrieve volume paths for volume '%ls'!", volume.c_str());
  }
  const std::wstring first = mount_points.data();
  return first.empty() ? path : ReplaceAll(path, volume, first);
}

}  // namespace crv::root
