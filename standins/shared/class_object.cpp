#include "shared/class_object.h"

#include <atomic>

#include "shared/com_object.h"

namespace crv::standins {
namespace {

std::atomic<long> library_locks{0};  // LockServer and references to the class object

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
    return outer ? CLASS_E_NOAGGREGATION : CreateObject(iid, object);
  }
  HRESULT __stdcall LockServer(BOOL lock) override {
    library_locks += lock ? 1 : -1;
    return S_OK;
  }
};

ClassObject class_object;

}  // namespace
}  // namespace crv::standins

using namespace crv::standins;

STDAPI DllGetClassObject(REFCLSID class_id, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  return class_id == served_class ? class_object.QueryInterface(iid, object) : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() { return live_objects == 0 && library_locks == 0 ? S_OK : S_FALSE; }

// How many of the library's objects are alive in this process.
extern "C" long __stdcall LiveObjects() { return live_objects; }
