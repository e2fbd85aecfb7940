// The minidumps in the suite's log folder. Failures throw crv::exceptions::error.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace crv::standins::tour {

std::vector<std::wstring> DumpFiles();  // full paths, oldest first

struct DumpContent {
  std::optional<DWORD> exception;      // its code
  std::optional<std::string> comment;  // UTF-8
};
DumpContent ReadDump(const std::wstring& path);  // what is missing stays empty, also in a file that is no minidump

}  // namespace crv::standins::tour
