// WMI: the instances in Security Center's namespaces, and the server that holds them.
#include <windows.h>

#include "shared/area.h"
#include "shared/com_server.h"
#include "shared/console.h"
#include "shared/words.h"
#include "wmi/control.h"

namespace crv::standins {
namespace {

constexpr wchar_t kServer[] = L"security_center_wmi.dll";

void Install() {
  RegisterServer(kServer);
  PrintLine(L"WMI's locator class is registered to the stand-in");
}

void Uninstall() {
  UnregisterServer(kServer);
  PrintLine(L"WMI's locator class is the system's own again");
}

std::wstring Described(const WmiValue& value) {
  if (const std::wstring* const text = std::get_if<std::wstring>(&value)) return L"\"" + *text + L"\"";
  return std::get<bool>(value) ? L"true" : L"false";
}

Table Rows() {
  Table rows = {{L"WMI namespace", L"Class", L"Property", L"Value"}};
  for (const WmiInstance& instance : WmiInstances()) {
    for (const auto& [name, value] : instance.properties) {
      rows.push_back({instance.name_space, instance.class_name, name, Described(value)});
    }
  }
  return rows;
}

}  // namespace

const Area& WmiArea() {
  static const Area area = {
      .calls = &WmiCalls(),
      .install = &Install,
      .uninstall = &Uninstall,
      .table = &Rows,
      .key_cells = 3,
      .clear = &ClearWmi,
  };
  return area;
}

}  // namespace crv::standins
