// The suite's firewall.
#include "shared/area.h"
#include "shared/console.h"
#include "shared/words.h"
#include "firewall/control.h"

namespace crv::standins {
namespace {

Table Rows() { return {{L"Firewall", L"State"}, {L"the suite's", FirewallIsOn() ? L"on" : L"off"}}; }

}  // namespace

const Area& FirewallArea() {
  static const Area area = {.calls = &FirewallCalls(), .table = &Rows, .clear = &ClearFirewall};
  return area;
}

}  // namespace crv::standins
