// The suite's firewall.
#include "shared/area.h"
#include "shared/console.h"
#include "shared/words.h"
#include "firewall/control.h"

namespace crv::standins {
namespace {

void Show() { PrintTable({{L"Firewall"}, {FirewallIsOn() ? L"on" : L"off"}}); }

}  // namespace

const Area& FirewallArea() {
  static const Area area = {.calls = &FirewallCalls(), .show = &Show, .clear = &ClearFirewall};
  return area;
}

}  // namespace crv::standins
