// What the product itself leaves behind on the machine: the names under which products were last registered.
#include "security_center/control.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/registry.h"
#include "shared/words.h"

namespace crv::standins {
namespace {

constexpr wchar_t kProductKey[] = L"SOFTWARE\\CORVID Software\\Corvid\\Wsc";

void Show() {
  std::vector<Words> rows = {{L"Recorded name", L"Value"}};
  for (const wchar_t* const interface_name : kProductInterfaces) {
    rows.push_back({interface_name, registry::ReadText(kProductKey, interface_name).value_or(kNothing)});
  }
  PrintTable(rows);
}

void Clear() {
  for (const wchar_t* const interface_name : kProductInterfaces) registry::DeleteValue(kProductKey, interface_name);
}

}  // namespace

const Area& ProductArea() {
  static const Area area = {.show = &Show, .clear = &Clear};
  return area;
}

}  // namespace crv::standins
