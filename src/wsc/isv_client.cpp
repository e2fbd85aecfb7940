#include "wsc/isv_client.h"

#include <typeinfo>

#include "base/exceptions.h"
#include "base/log.h"
#include "platform/type_name.h"
#include "root/module_path.h"
#include "wsc/defender.h"
#include "wsc/pending.h"
#include "wsc/product.h"
#include "wsc/registered_name.h"
#include "wsc/security_center_service.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

// Answers of Unregister that mean "was not registered".
constexpr HRESULT kNotRegistered = static_cast<HRESULT>(0x80070002);  // also of UpdateStatus
constexpr HRESULT kNoSuchProduct = static_cast<HRESULT>(0x80074005);

// Log lines take the number behind "0x%08x".
unsigned Hex(HRESULT result) { return static_cast<unsigned>(result); }

}  // namespace

template <typename Interface>
std::string isv_client<Interface>::TypeName() {
  return platform::StructTypeName(typeid(Interface));
}

template <typename Interface>
typename isv_client<Interface>::Pointer isv_client<Interface>::create() {
  sc::ensure_running();
  Pointer pointer;
  const HRESULT result =
      CoCreateInstance(CLSID_WscIsv, nullptr, CLSCTX_INPROC_SERVER, Pointer::GetIID(), reinterpret_cast<void**>(&pointer));
  if (FAILED(result)) {
    throw exceptions::error(result, "CoCreateInstance CLSID_WscIsv: %s", platform::ClassTypeName(typeid(Pointer)).c_str());
  }
  return pointer;
}

template <typename Interface>
template <typename Call>
HRESULT isv_client<Interface>::CallOnce(Call call) {
  const Pointer pointer = create();
  return call_while_pending(tag, [&] { return call(pointer); });
}

template <typename Interface>
void isv_client<Interface>::register_product() {
  const std::string type_name = TypeName();
  log::Info(tag, "Registering %s", type_name.c_str());
  _bstr_t path(root::GetModulePath(nullptr).c_str());
  _bstr_t name(kDisplayName);
  const HRESULT result =
      CallOnce([&](const Pointer& product) { return product->Register(path.GetBSTR(), name.GetBSTR(), FALSE, FALSE); });
  if (FAILED(result)) throw exceptions::error(result, "WSC Register: %s", type_name.c_str());
  write_registered_name();
  log::Info(tag, "Register succeeded: 0x%08x", Hex(result));
}

template <typename Interface>
void isv_client<Interface>::unregister_product() {
  const std::string type_name = TypeName();
  log::Info(tag, "Unregistering %s", type_name.c_str());
  const HRESULT result = CallOnce([](const Pointer& product) { return product->Unregister(); });
  if (FAILED(result) && result != kNotRegistered && result != kNoSuchProduct) {
    throw exceptions::error(result, "WSC Unregister: %s", type_name.c_str());
  }
  log::Info(tag, "Unregister succeeded: 0x%08x", Hex(result));
}

template <typename Interface>
template <typename Call>
HRESULT isv_client<Interface>::PushStatus(Call update) {
  if (registered_name_differs()) {
    log::Debug(tag, "wrong display name - reregistering");
    unregister_product();
    register_product();
  }
  const HRESULT result = CallOnce(update);
  if (result != kNotRegistered) return result;
  log::Warning(tag, "Not registered, registering...");
  register_product();
  return CallOnce(update);
}

template <typename Interface>
void isv_client<Interface>::update_status(ProductState state,
                                          SignatureStatus signatures) requires(!std::same_as<Interface, IWscFWStatus>) {
  const std::string type_name = TypeName();
  log::Info(tag, "Updating %s", type_name.c_str());
  const BOOL up_to_date = signatures == SignatureStatus::up_to_date ? TRUE : FALSE;
  const HRESULT result = PushStatus([&](const Pointer& product) { return product->UpdateStatus(state, up_to_date); });
  if (FAILED(result)) throw exceptions::error(result, "WSC UpdateStatus: %s", type_name.c_str());
  log::Info(tag, "UpdateStatus succeeded: 0x%08x", Hex(result));
  if (state == ProductState::on) change_defender_status(false);
}

template <typename Interface>
void isv_client<Interface>::update_status(ProductState state) requires(std::same_as<Interface, IWscFWStatus>) {
  const HRESULT result = PushStatus([&](const Pointer& product) { return product->UpdateStatus(state); });
  if (FAILED(result)) throw exceptions::error(result, "WSC UpdateStatus: FW");
  log::Info(tag, "UpdateStatus succeeded: 0x%08x", Hex(result));
}

template <typename Interface>
bool isv_client<Interface>::registered_name_differs() {
  return wsc::registered_name_differs(registered_name_value(TypeName()));
}

template <typename Interface>
void isv_client<Interface>::write_registered_name() {
  wsc::write_registered_name(registered_name_value(TypeName()));
}

template class isv_client<IWscAVStatus>;
template class isv_client<IWscASStatus>;
template class isv_client<IWscFWStatus>;

}  // namespace crv::wsc
