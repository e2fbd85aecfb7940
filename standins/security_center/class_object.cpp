// The COM side: the class object, the objects that it makes, and the library's life. One object implements one product
// interface; it is asked for directly.
#include <windows.h>
#include <unknwn.h>

#include <atomic>
#include <new>

#include "control/security_center_control.h"
#include "security_center/interfaces.h"
#include "security_center/product_calls.h"

namespace crv::standins {
namespace {

std::atomic<long> live_objects{0};
std::atomic<long> library_locks{0};  // LockServer and references to the class object

// Which product an object stands for.
struct Kind {
  const IID* iid;
  const wchar_t* interface_name;
};

// IUnknown, Register and Unregister, which all kinds share.
template <typename Interface>
class ProductObject : public Interface {
 public:
  explicit ProductObject(const Kind& kind) : kind_(kind) { ++live_objects; }
  virtual ~ProductObject() { --live_objects; }

  HRESULT __stdcall QueryInterface(REFIID iid, void** object) final {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (iid != *kind_.iid && iid != IID_IUnknown) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }
  ULONG __stdcall AddRef() final { return static_cast<ULONG>(++references_); }
  ULONG __stdcall Release() final {
    const long left = --references_;
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  HRESULT __stdcall Register(BSTR path, BSTR name, BOOL flag1, BOOL flag2) final {
    return RegisterCall(kind_.interface_name, path, name, flag1, flag2);
  }
  HRESULT __stdcall Unregister() final { return UnregisterCall(kind_.interface_name); }

 protected:
  const Kind kind_;

 private:
  std::atomic<long> references_{1};
};

class SignatureProduct final : public ProductObject<ISignatureProduct> {
 public:
  using ProductObject::ProductObject;
  HRESULT __stdcall UpdateStatus(DWORD state, BOOL signatures_up_to_date) override {
    return UpdateStatusCall(kind_.interface_name, state, signatures_up_to_date);
  }
};

class FirewallProduct final : public ProductObject<IFirewallProduct> {
 public:
  using ProductObject::ProductObject;
  HRESULT __stdcall UpdateStatus(DWORD state) override {
    return UpdateStatusCall(kind_.interface_name, state, std::nullopt);
  }
};

// The caller owns the one reference of what is made; null when memory is short.
template <typename Object>
IUnknown* Make(const Kind& kind) {
  return new (std::nothrow) Object(kind);
}

struct Row {
  Kind kind;
  IUnknown* (*make)(const Kind& kind);
};
constexpr Row kRows[] = {{{&kAntiVirusIid, kAntiVirus}, &Make<SignatureProduct>},
                         {{&kAntiSpywareIid, kAntiSpyware}, &Make<SignatureProduct>},
                         {{&kFirewallIid, kFirewall}, &Make<FirewallProduct>}};

// Lives as long as the library; references only keep the library loaded.
class ClassObject final : public IClassFactory {
 public:
  HRESULT __stdcall QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IClassFactory && iid != IID_IUnknown) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
  }
  ULONG __stdcall AddRef() override { return static_cast<ULONG>(++library_locks); }
  ULONG __stdcall Release() override { return static_cast<ULONG>(--library_locks); }

  HRESULT __stdcall CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    for (const Row& row : kRows) {
      if (iid != *row.kind.iid) continue;
      bool null_pointer = false;
      const HRESULT result = CreateCall(row.kind.interface_name, null_pointer);
      if (FAILED(result) || null_pointer) return result;
      *object = row.make(row.kind);
      return *object ? result : E_OUTOFMEMORY;
    }
    return E_NOINTERFACE;
  }
  HRESULT __stdcall LockServer(BOOL lock) override {
    library_locks += lock ? 1 : -1;
    return S_OK;
  }
};

ClassObject class_object;

}  // namespace
}  // namespace crv::standins

STDAPI DllGetClassObject(REFCLSID class_id, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (class_id != crv::standins::kWscIsvClass) return CLASS_E_CLASSNOTAVAILABLE;
  return crv::standins::class_object.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
  return crv::standins::live_objects == 0 && crv::standins::library_locks == 0 ? S_OK : S_FALSE;
}

// How many product objects are alive in this process.
extern "C" long __stdcall LiveObjects() { return crv::standins::live_objects; }
