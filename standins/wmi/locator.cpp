// The locator, by which a program connects to a namespace.
#include <windows.h>
#include <unknwn.h>
#include <wbemcli.h>

#include <new>

#include "shared/class_object.h"
#include "shared/com_object.h"
#include "wmi/control.h"
#include "wmi/schema.h"
#include "wmi/wbem_object.h"
#include "wmi/wbem_services.h"

namespace crv::standins {
namespace {

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

}  // namespace

const CLSID& served_class = CLSID_WbemLocator;

HRESULT CreateObject(REFIID iid, void** object) {
  return WmiCalls().Answered(L"Create", L"", S_OK, [&](const Answer& answer) -> HRESULT {
    if (answer.null_pointer) return S_OK;
    auto* const locator = new (std::nothrow) Locator;
    if (!locator) return E_OUTOFMEMORY;
    const HRESULT result = locator->QueryInterface(iid, object);
    locator->Release();
    return result;
  });
}

}  // namespace crv::standins
