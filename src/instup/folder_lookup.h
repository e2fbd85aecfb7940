// How the common OS library finds one of its folders: the registry's word first, then a default, each only if it passes a
// check. File-system calls run with the WOW64 file-system redirection switched off. No state; any thread.
#pragma once

#include <windows.h>

#include <span>
#include <string>

namespace crv::instup {

// Checks of a folder. A positive mode n asks for the first n marker files in it.
inline constexpr int kMustExist = 0;         // the folder has to be a directory
inline constexpr int kCreateIfMissing = -1;  // and is made, open to everyone, when it is missing

using Markers = std::span<const wchar_t* const>;  // file names; a null one, like one beyond the end, counts as found

struct FolderQuery {
  const wchar_t* value_name;
  const wchar_t* key_path;              // below HKEY_LOCAL_MACHINE
  std::wstring default_base = {};       // empty: no default
  const wchar_t* sub_folder = nullptr;  // of the default base; without one a registry value is not checked, with "" it is
  Markers markers = {};
  int mode = kMustExist;
};

// Finds the folder: the registry value, if it is a whole path (path_text.h); the default base and its sub-folder; the default base
// alone. Returns 0 with the folder, normalised, in `out`, or ERROR_PATH_NOT_FOUND (3) with `out` empty, and leaves that code in the last error. Throws
// std::bad_alloc.
[[nodiscard]] DWORD LookupFolder(std::wstring& out, const FolderQuery& query);

// Whether the folder passes the check of the mode. Throws std::bad_alloc.
[[nodiscard]] bool VerifyFolder(const std::wstring& folder, Markers markers, int mode);

[[nodiscard]] bool PathExists(const std::wstring& path);       // a file or a directory
[[nodiscard]] bool FileExists(const std::wstring& path);       // and is no directory
[[nodiscard]] bool DirectoryExists(const std::wstring& path);  // and is a directory

// Makes one folder; its parent has to exist. Null attributes mean the default security. A failure is not told: callers look
// whether the folder is there.
void MakeDirectory(const std::wstring& path, SECURITY_ATTRIBUTES* attributes);

}  // namespace crv::instup
