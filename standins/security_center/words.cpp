// Security Center's product class: who is registered, how it answers, what it was asked.
#include <windows.h>

#include "shared/area.h"
#include "shared/com_server.h"
#include "shared/console.h"
#include "shared/words.h"
#include "security_center/control.h"

namespace crv::standins {
namespace {

constexpr wchar_t kServer[] = L"security_center.dll";

void Install() {
  RegisterServer(kServer);
  PrintLine(L"Security Center's product class is registered");
}

void Uninstall() {
  UnregisterServer(kServer);
  PrintLine(L"Security Center's product class is taken back");
}

// The word for a number that may be missing; a number without a word shows itself.
std::wstring WordFor(const std::optional<DWORD>& number, const std::vector<std::wstring>& words) {
  if (!number) return kNothing;
  return *number < words.size() ? words[*number] : std::to_wstring(*number);
}

Table Rows() {
  static constexpr struct {
    const wchar_t* interface_name;
    const wchar_t* kind;
  } kKinds[] = {{kAntiVirus, L"anti-virus"}, {kAntiSpyware, L"anti-spyware"}, {kFirewall, L"firewall"}};
  Table rows = {{L"Product", L"Registered as", L"State", L"Signatures", L"Path"}};
  for (const auto& kind : kKinds) {
    if (const std::optional<Product> product = ReadProduct(kind.interface_name)) {
      rows.push_back({kind.kind, product->name, WordFor(product->state, {L"on", L"off", L"snoozed", L"expired"}),
                      WordFor(product->signatures_up_to_date, {L"out of date", L"up to date"}), product->path});
    } else {
      rows.push_back({kind.kind, L"(not registered)", kNothing, kNothing, kNothing});
    }
  }
  return rows;
}

}  // namespace

const Area& SecurityCenterArea() {
  static const Area area = {
      .calls = &SecurityCenterCalls(),
      .install = &Install,
      .uninstall = &Uninstall,
      .table = &Rows,
      .show_after_run = true,
      .clear = &ClearSecurityCenter,
  };
  return area;
}

}  // namespace crv::standins
