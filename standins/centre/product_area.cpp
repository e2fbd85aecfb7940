// What the product itself leaves behind on the machine.
#include <windows.h>

#include "base/exceptions.h"
#include "centre/area.h"
#include "centre/places.h"
#include "control/registry.h"
#include "control/security_center_control.h"

namespace crv::standins::centre {
namespace {

constexpr wchar_t kProductKey[] = L"SOFTWARE\\CORVID Software\\Corvid\\Wsc";

void DeleteLog(const std::wstring& path) {
  if (DeleteFileW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
    throw exceptions::error(error, L"cannot delete %s", path.c_str());
  }
}

// The names under which products were last registered, one value per interface, and the log.
void Clear() {
  for (const wchar_t* const interface_name : kProductInterfaces) registry::DeleteValue(kProductKey, interface_name);
  DeleteLog(LogFile());
  DeleteLog(OldLogFile());
}

}  // namespace

const Area& ProductArea() {
  static const Area area = {.clear = &Clear};
  return area;
}

}  // namespace crv::standins::centre
