// The suite's firewall.
#include "centre/area.h"
#include "centre/console.h"
#include "control/firewall_control.h"

namespace crv::standins::centre {
namespace {

void Show() { PrintTable({{L"Firewall"}, {FirewallIsOn() ? L"on" : L"off"}}); }

}  // namespace

const Area& FirewallArea() {
  static const Area area = {.calls = &FirewallCalls(), .show = &Show, .clear = &ClearFirewall};
  return area;
}

}  // namespace crv::standins::centre
