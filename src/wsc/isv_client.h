// The COM back end: registers, unregisters and updates one product kind through Security Center's ISV class. One class for each
// of IWscAVStatus, IWscASStatus and IWscFWStatus; it has no state, and every step creates and releases its own interface pointer.
// All operations block while Security Center's service comes up and while it answers "pending" (up to some 15 minutes per call),
// and run on a thread that has initialised COM. Failures throw `crv::exceptions::error` with the HRESULT; completed steps are not
// rolled back.
#pragma once

#include <concepts>
#include <string>

#include "avmgr/product_state.h"
#include "wsc/iwsc_product.h"

namespace crv::wsc {

template <typename Interface>
class isv_client {
 public:
  using Pointer = typename InterfacePointer<Interface>::Type;

  // A new interface pointer, after Security Center's service was made to run (security_center_service.h, whose failures pass).
  [[nodiscard]] static Pointer create();

  // Registers the host executable under the display name and records the name.
  static void register_product();

  // Unregisters the kind; that it was not registered counts as success. The recorded name stays.
  static void unregister_product();

  // Pushes the state. Registers first when the recorded name is missing or another, and again when Security Center does not know
  // the product. The state `on` then switches Windows Defender off (defender.h).
  static void update_status(ProductState state, SignatureStatus signatures) requires(!std::same_as<Interface, IWscFWStatus>);

  // The firewall has no signatures.
  static void update_status(ProductState state) requires(std::same_as<Interface, IWscFWStatus>);

  // The record of the kind's registered name (registered_name.h).
  [[nodiscard]] static bool registered_name_differs();
  static void write_registered_name();

 private:
  static std::string TypeName();

  // Creates the interface and makes one call through call_while_pending.
  template <typename Call>
  [[nodiscard]] static HRESULT CallOnce(Call call);

  // Registers again if the recorded name differs, then makes the call; registers and repeats it once if the product is unknown.
  template <typename Call>
  [[nodiscard]] static HRESULT PushStatus(Call update);
};

extern template class isv_client<IWscAVStatus>;
extern template class isv_client<IWscASStatus>;
extern template class isv_client<IWscFWStatus>;

}  // namespace crv::wsc
