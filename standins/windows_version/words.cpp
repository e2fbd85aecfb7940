// Which Windows the host believes to run on.
#include "windows_version/control.h"

#include "shared/area.h"

namespace crv::standins {
namespace {

constexpr wchar_t kRestore[] = L"restore";

Table Rows() { return {{L"Windows version"}, {CurrentWindowsVersion().value_or(L"the machine's own")}}; }

void Set(const Words& words) {
  if (words[0] == kRestore) return RestoreWindowsVersion();
  if (IsWindowsVersion(words[0])) return SetWindowsVersion(words[0]);
  std::wstring known;
  for (const wchar_t* const version : kWindowsVersions) known += std::wstring(L" ") + version;
  throw UsageError{L"unknown Windows version '" + words[0] + L"'; there are:" + known};
}

}  // namespace

const Area& WindowsVersionArea() {
  static const Area area = {
      .commands = {{L"windows", L"winxp | vista | vistasp2 | win7 | win8 | win10 | win11 | restore",
                    L"which Windows wsc_proxy.exe believes to run on; restore: the machine's own", 1, 1, &Set}},
      .install = &RestoreWindowsVersion,
      .uninstall = &RestoreWindowsVersion,
      .table = &Rows,
      .clear = &RestoreWindowsVersion,
  };
  return area;
}

}  // namespace crv::standins
