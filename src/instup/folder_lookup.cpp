#include "instup/folder_lookup.h"

#include <algorithm>
#include <utility>

#include "instup/path_text.h"
#include "instup/registry_text.h"
#include "root/optional_functions.h"
#include "root/scoped_handle.h"

namespace crv::instup {
namespace {

DWORD Attributes(const std::wstring& path) {
  return root::WithoutFsRedirection([&path] { return GetFileAttributesW(path.c_str()); });
}

bool ReadValue(const FolderQuery& query, std::wstring& value) {
  root::ScopedRegistryKey key;
  if (OpenRegistryKey(L"HKEY_LOCAL_MACHINE", query.key_path, KEY_READ, nullptr, key.put()) != ERROR_SUCCESS) return false;
  return ReadRegistryString(key.get(), query.value_name, value) == ERROR_SUCCESS && IsWholePath(value);
}

bool Find(const FolderQuery& query, std::wstring& folder) {
  if (ReadValue(query, folder)) {
    folder = NormalizeFolderPath(folder);
    if (!query.sub_folder || VerifyFolder(folder, query.markers, query.mode)) return true;
  }
  if (query.default_base.empty()) return false;
  if (query.sub_folder) {
    folder = NormalizeFolderPath(AppendPath(query.default_base, query.sub_folder));
    if (VerifyFolder(folder, query.markers, query.mode)) return true;
  }
  folder = NormalizeFolderPath(query.default_base);
  return VerifyFolder(folder, query.markers, query.mode);
}

}  // namespace

DWORD LookupFolder(std::wstring& out, const FolderQuery& query) {
  std::wstring folder;
  const bool found = Find(query, folder);
  if (!found) folder.clear();
  out = std::move(folder);
  const DWORD result = found ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
  SetLastError(result);
  return result;
}

bool VerifyFolder(const std::wstring& folder, Markers markers, int mode) {
  if (mode > 0) {
    for (const wchar_t* const marker : markers.first(std::min(markers.size(), static_cast<std::size_t>(mode)))) {
      if (marker && !FileExists(AppendPath(folder, marker))) return false;
    }
    return true;
  }
  if (DirectoryExists(folder)) return true;
  if (mode != kCreateIfMissing) return false;
  MakeDirectory(folder, root::OpenSecurityAttributes());
  return DirectoryExists(folder);
}

bool PathExists(const std::wstring& path) { return Attributes(path) != INVALID_FILE_ATTRIBUTES; }

bool FileExists(const std::wstring& path) {
  const DWORD attributes = Attributes(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool DirectoryExists(const std::wstring& path) {
  const DWORD attributes = Attributes(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

void MakeDirectory(const std::wstring& path, SECURITY_ATTRIBUTES* attributes) {
  root::WithoutFsRedirection([&path, attributes] { return CreateDirectoryW(path.c_str(), attributes); });
}

}  // namespace crv::instup
