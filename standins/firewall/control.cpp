#include "firewall/control.h"

#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins Firewall";
constexpr wchar_t kOn[] = L"On";

}  // namespace

bool FirewallIsOn() { return registry::ReadNumber(kFirewallKey, kOn).value_or(0) != 0; }

void SetFirewallOn(bool on) { registry::WriteNumber(kFirewallKey, kOn, on); }

const ScriptedCalls& FirewallCalls() {
  static const ScriptedCalls calls(kFirewallKey, kLock, {{L"crvGetFirewall", true}, {L"Firewall.Start"}, {L"crvFreeFirewall"}});
  return calls;
}

void ClearFirewall() {
  const NamedLock lock(kLock);
  registry::DeleteKey(kFirewallKey);
}

}  // namespace crv::standins
