// Minidumps in a folder. Failures throw crv::exceptions::error.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace crv::standins {

std::vector<std::wstring> DumpFiles(const std::wstring& folder);  // full paths, oldest first

struct DumpContent {
  std::vector<DWORD> streams;          // their types, in their order
  std::vector<DWORD> threads;          // the identifiers in its list of threads
  std::optional<DWORD> exception;      // its code
  DWORD exception_thread = 0;          // who raised it
  std::optional<std::string> comment;  // UTF-8
  DWORD build = 0;                     // of Windows, as the program that wrote it was told
};
DumpContent ReadDump(const std::wstring& path);  // what is missing stays empty, also in a file that is no minidump

}  // namespace crv::standins
