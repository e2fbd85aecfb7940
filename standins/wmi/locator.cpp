// The locator, by which a program connects to a namespace, its class object, and the library's life.
#include <windows.h>
#include <unknwn.h>
#include <wbemcli.h>

#include <new>

#include "control/wmi_control.h"
#include "control/wmi_schema.h"
#include "wmi/com_object.h"
#include "wmi/wbem_object.h"
#include "wmi/wbem_services.h"

namespace crv::standins {
namespace {

std::atomic<long> library_locks{0};  // LockServer and references to the class object

class Locator final : public ComObject<IWbemLocator> {
 public:
  Locator() : ComObject(IID_IWbemLocator) {}

  HRESULT __stdcall ConnectServer(const BSTR resource, const BSTR user, const BSTR password, const BSTR, LONG flags, const BSTR,
                                  IWbemContext*, IWbemServices** services) override {
    if (!services) return WBEM_E_INVALID_PARAMETER;
    *services = nullptr;
    const bool is_text = IsBstr(resource);
    const wchar_t* const name_space = is_text ? FindNamespace(resource) : nullptr;
    HRESULT refusal = name_space ? WBEM_S_NO_ERROR : WBEM_E_INVALID_NAMESPACE;
    if (!is_text || (flags != 0 && flags != WBEM_FLAG_CONNECT_USE_MAX_WAIT)) refusal = WBEM_E_INVALID_PARAMETER;
    // Another user can only be named for another machine.
    if (SUCCEEDED(refusal) && (user || password)) refusal = WBEM_E_LOCAL_CREDENTIALS;
    const std::wstring arguments = is_text ? L"\"" + std::wstring(resource) + L"\"" : L"null";
    return WmiCalls().Answered(L"ConnectServer", arguments, refusal, [&](const Answer& answer) -> HRESULT {
      if (answer.null_pointer) return S_OK;
      *services = new (std::nothrow) WbemServices(name_space);
      return *services ? WBEM_S_NO_ERROR : WBEM_E_OUT_OF_MEMORY;
    });
  }
};

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
    return WmiCalls().Answered(L"Create", L"", S_OK, [&](const Answer& answer) -> HRESULT {
      if (answer.null_pointer) return S_OK;
      auto* const locator = new (std::nothrow) Locator;
      if (!locator) return E_OUTOFMEMORY;
      const HRESULT result = locator->QueryInterface(iid, object);
      locator->Release();
      return result;
    });
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
  if (class_id != CLSID_WbemLocator) return CLASS_E_CLASSNOTAVAILABLE;
  return crv::standins::class_object.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
  return crv::standins::live_objects == 0 && crv::standins::library_locks == 0 ? S_OK : S_FALSE;
}

// How many locators, namespaces, classes and instances are alive in this process.
extern "C" long __stdcall LiveObjects() { return crv::standins::live_objects; }
