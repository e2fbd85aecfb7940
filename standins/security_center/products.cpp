// The product objects of Security Center's class. One object implements one product interface; it is asked for directly.
#include <windows.h>
#include <unknwn.h>

#include <new>

#include "shared/class_object.h"
#include "shared/com_object.h"
#include "security_center/control.h"
#include "security_center/interfaces.h"
#include "security_center/product_calls.h"

namespace crv::standins {
namespace {

// Register and Unregister, which all kinds share.
template <typename Interface>
class Product : public ComObject<Interface> {
 public:
  Product(const IID& iid, const wchar_t* name) : ComObject<Interface>(iid), name_(name) {}

  HRESULT __stdcall Register(BSTR path, BSTR name, BOOL flag1, BOOL flag2) final {
    return RegisterCall(name_, path, name, flag1, flag2);
  }
  HRESULT __stdcall Unregister() final { return UnregisterCall(name_); }

 protected:
  const wchar_t* const name_;  // of the interface
};

class SignatureProduct final : public Product<ISignatureProduct> {
 public:
  using Product::Product;
  HRESULT __stdcall UpdateStatus(DWORD state, BOOL signatures_up_to_date) override {
    return UpdateStatusCall(name_, state, signatures_up_to_date);
  }
};

class FirewallProduct final : public Product<IFirewallProduct> {
 public:
  using Product::Product;
  HRESULT __stdcall UpdateStatus(DWORD state) override { return UpdateStatusCall(name_, state, std::nullopt); }
};

// The caller owns the one reference of what is made; null when memory is short.
template <typename Object>
IUnknown* Make(const IID& iid, const wchar_t* name) {
  return new (std::nothrow) Object(iid, name);
}

struct Kind {
  const IID& iid;
  const wchar_t* name;
  IUnknown* (*make)(const IID& iid, const wchar_t* name);
};
constexpr Kind kKinds[] = {{kAntiVirusIid, kAntiVirus, &Make<SignatureProduct>},
                           {kAntiSpywareIid, kAntiSpyware, &Make<SignatureProduct>},
                           {kFirewallIid, kFirewall, &Make<FirewallProduct>}};

}  // namespace

const CLSID& served_class = kWscIsvClass;

HRESULT CreateObject(REFIID iid, void** object) {
  for (const Kind& kind : kKinds) {
    if (iid != kind.iid) continue;
    bool null_pointer = false;
    const HRESULT result = CreateCall(kind.name, null_pointer);
    if (FAILED(result) || null_pointer) return result;
    *object = kind.make(kind.iid, kind.name);
    return *object ? result : E_OUTOFMEMORY;
  }
  return E_NOINTERFACE;
}

}  // namespace crv::standins
