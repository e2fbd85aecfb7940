#include "wsc/client.h"

#include "base/exceptions.h"
#include "wsc/back_end.h"
#include "wsc/isv_client.h"

namespace crv::wsc {
namespace {

// Systems without the COM class are not served yet.
void RequireIsv() {
  if (!isv_available) throw exceptions::error("Security Center registration through WMI is not built yet");
}

}  // namespace

void register_av() {
  RequireIsv();
  isv_client<IWscAVStatus>::register_product();
}

void unregister_av() {
  RequireIsv();
  isv_client<IWscAVStatus>::unregister_product();
}

void update_av(ProductState state, SignatureStatus signatures) {
  RequireIsv();
  isv_client<IWscAVStatus>::update_status(state, signatures);
}

void register_as() {
  RequireIsv();
  isv_client<IWscASStatus>::register_product();
}

void unregister_as() {
  RequireIsv();
  isv_client<IWscASStatus>::unregister_product();
}

void update_as(ProductState state, SignatureStatus signatures) {
  RequireIsv();
  isv_client<IWscASStatus>::update_status(state, signatures);
}

void register_fw() {
  RequireIsv();
  isv_client<IWscFWStatus>::register_product();
}

void unregister_fw() {
  RequireIsv();
  isv_client<IWscFWStatus>::unregister_product();
}

void update_fw(ProductState state) {
  RequireIsv();
  isv_client<IWscFWStatus>::update_status(state);
}

}  // namespace crv::wsc
