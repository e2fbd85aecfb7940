// The log library: its folder, the log in it, and how it misbehaves.
#include <windows.h>
#include <shlobj.h>

#include <algorithm>
#include <iterator>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "log/control.h"

namespace crv::standins {
namespace {

void CreateFolder() {
  const std::wstring folder = LogFolder();
  const int result = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (result != ERROR_SUCCESS && result != ERROR_ALREADY_EXISTS && result != ERROR_FILE_EXISTS) {
    throw exceptions::error(result, L"cannot create %s", folder.c_str());
  }
  PrintLine(L"the log folder is " + folder);
}

void ScriptFromWords(const Words& words) {
  LogScript script;
  if (words[0] == L"no-logger" && words.size() == 1) {
    script.no_logger = true;
  } else if (words[0] == L"no-module" && words.size() == 1) {
    script.no_module = true;
  } else if (words[0] == L"throw" && words.size() == 2) {
    if (std::find(std::begin(kLogOperations), std::end(kLogOperations), words[1]) == std::end(kLogOperations)) {
      std::wstring names;
      for (const wchar_t* const name : kLogOperations) names += std::wstring(L" ") + name;
      throw UsageError{L"the log library cannot throw from '" + words[1] + L"'; it can from:" + names};
    }
    script.throw_from = words[1];
  } else if (words[0] != L"normal" || words.size() != 1) {
    throw UsageError{L"unknown behaviour of the log library: '" + words[0] + L"'"};
  }
  ScriptLog(script);
}

void DeleteLog(const std::wstring& path) {
  if (DeleteFileW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
    throw exceptions::error(error, L"cannot delete %s", path.c_str());
  }
}

void Clear() {
  ClearLogScript();
  DeleteLog(LogFile());
  DeleteLog(OldLogFile());
}

}  // namespace

const Area& LogArea() {
  static const Area area = {
      .commands = {{L"log", L"no-logger | no-module | throw WHERE | normal",
                    L"how the log library behaves; WHERE is acquire, logger, open, message, exception or all", 1, 2,
                    &ScriptFromWords}},
      .install = &CreateFolder,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
