#include "wsc/client.h"

#include "wsc/back_end.h"
#include "wsc/defender.h"
#include "wsc/isv_client.h"
#include "wsc/legacy_wmi.h"

namespace crv::wsc {
namespace {

// As what WMI gets a product that is only registered.
constexpr ProductState kRegisteredState = ProductState::on;
constexpr SignatureStatus kRegisteredSignatures = SignatureStatus::up_to_date;

}  // namespace

void register_av() {
  if (isv_available()) return isv_client<IWscAVStatus>::register_product();
  update_xp(kAntiVirusClass, kRegisteredState, kRegisteredSignatures);
}

void unregister_av() {
  if (!isv_available()) return unregistration_xp(kAntiVirusClass);
  isv_client<IWscAVStatus>::unregister_product();
  change_defender_status(true);
}

void update_av(ProductState state, SignatureStatus signatures) {
  if (isv_available()) return isv_client<IWscAVStatus>::update_status(state, signatures);
  update_xp(kAntiVirusClass, state, signatures);
}

// On a system whose WMI has no anti-spyware class, there is nothing to do, and that succeeds.

void register_as() {
  if (isv_available()) return isv_client<IWscASStatus>::register_product();
  if (wmi_has_security_center2()) update_xp(kAntiSpywareClass, kRegisteredState, kRegisteredSignatures);
}

void unregister_as() {
  if (isv_available()) {
    isv_client<IWscASStatus>::unregister_product();
    change_defender_status(true);
  } else if (wmi_has_security_center2()) {
    unregistration_xp(kAntiSpywareClass);
  }
}

void update_as(ProductState state, SignatureStatus signatures) {
  if (isv_available()) return isv_client<IWscASStatus>::update_status(state, signatures);
  if (wmi_has_security_center2()) update_xp(kAntiSpywareClass, state, signatures);
}

void register_fw() {
  if (isv_available()) return isv_client<IWscFWStatus>::register_product();
  update_xp(kFirewallClass, kRegisteredState, kRegisteredSignatures);
}

void unregister_fw() {
  if (isv_available()) return isv_client<IWscFWStatus>::unregister_product();
  unregistration_xp(kFirewallClass);
}

void update_fw(ProductState state) {
  if (isv_available()) return isv_client<IWscFWStatus>::update_status(state);
  update_xp(kFirewallClass, state, kRegisteredSignatures);
}

}  // namespace crv::wsc
