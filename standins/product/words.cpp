// What the product itself leaves behind on the machine: the names under which products were last registered.
#include "security_center/control.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/registry.h"
#include "shared/words.h"

namespace crv::standins {
namespace {

constexpr wchar_t kProductKey[] = L"SOFTWARE\\CORVID Software\\Corvid\\Wsc";

Table Rows() {
  Table rows = {{L"Recorded name", L"Value"}};
  for (const wchar_t* const interface_name : kProductInterfaces) {
    rows.push_back({interface_name, registry::ReadText(kProductKey, interface_name).value_or(kNothing)});
  }
  return rows;
}

void Record(const Words& words) {
  for (const wchar_t* const interface_name : kProductInterfaces) {
    if (words[0] == interface_name) return registry::WriteText(kProductKey, interface_name, words[1]);
  }
  throw UsageError{L"names are recorded for IWscAVStatus, IWscASStatus and IWscFWStatus, not for '" + words[0] + L"'"};
}

void Clear() {
  for (const wchar_t* const interface_name : kProductInterfaces) registry::DeleteValue(kProductKey, interface_name);
}

}  // namespace

const Area& ProductArea() {
  static const Area area = {
      .commands = {{L"recorded-name", L"INTERFACE NAME", L"the name under which the product believes to be registered", 2, 2,
                    &Record}},
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
