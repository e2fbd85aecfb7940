#include "wmi/wbem_object.h"

#include <oleauto.h>

#include <cwchar>
#include <new>
#include <optional>

namespace crv::standins {
namespace {

// Known to this library alone: it tells its own objects from others.
constexpr IID kOwnObject = {0x6a1f3d52, 0x0c7e, 0x4b8e, {0x9d, 0x21, 0x5f, 0x60, 0xa2, 0x7e, 0x31, 0xc4}};

CIMTYPE CimTypeOf(WmiType type) { return type == WmiType::text ? CIM_STRING : CIM_BOOLEAN; }

// What `Put` has to refuse before it looks at its script.
HRESULT Refusal(const WmiProperty* property, LONG flags, const VARIANT* value, CIMTYPE type, bool is_instance) {
  if (flags != 0 || !value) return WBEM_E_INVALID_PARAMETER;
  if (!is_instance) return WBEM_E_INVALID_OPERATION;
  if (!property) return WBEM_E_NOT_FOUND;
  if (type != CIM_EMPTY && type != CimTypeOf(property->type)) return WBEM_E_TYPE_MISMATCH;
  switch (V_VT(value)) {
    case VT_NULL: return S_OK;
    case VT_BSTR:
      if (property->type != WmiType::text) return WBEM_E_TYPE_MISMATCH;
      return IsBstr(V_BSTR(value)) ? WBEM_S_NO_ERROR : WBEM_E_INVALID_PARAMETER;
    case VT_BOOL:
      if (property->type != WmiType::boolean) return WBEM_E_TYPE_MISMATCH;
      return V_BOOL(value) == VARIANT_TRUE || V_BOOL(value) == VARIANT_FALSE ? WBEM_S_NO_ERROR : WBEM_E_INVALID_PARAMETER;
    default: return WBEM_E_TYPE_MISMATCH;
  }
}

std::wstring Described(const VARIANT* value) {
  const VARTYPE type = value ? V_VT(value) : VARTYPE{VT_EMPTY};
  switch (type) {
    case VT_BSTR: return V_BSTR(value) ? L"\"" + std::wstring(V_BSTR(value)) + L"\"" : L"null text";
    case VT_BOOL: return V_BOOL(value) ? L"true" : L"false";
    case VT_NULL: return L"null";
    default: return L"variant of type " + std::to_wstring(type);
  }
}

}  // namespace

bool IsBstr(BSTR text) { return text && SysStringLen(text) == std::wcslen(text); }

WbemObject::WbemObject(const WmiClass& wmi_class) : ComObject(IID_IWbemClassObject), class_(wmi_class), is_instance_(false) {}

WbemObject::WbemObject(const WmiClass& wmi_class, const WmiProperties& properties)
    : ComObject(IID_IWbemClassObject), class_(wmi_class), is_instance_(true), properties_(properties) {}

WbemObject* WbemObject::From(IWbemClassObject* object) {
  void* own = nullptr;
  if (!object || FAILED(object->QueryInterface(kOwnObject, &own))) return nullptr;
  object->Release();
  return static_cast<WbemObject*>(static_cast<IWbemClassObject*>(own));
}

HRESULT __stdcall WbemObject::QueryInterface(REFIID iid, void** object) {
  return ComObject::QueryInterface(iid == kOwnObject ? IID_IWbemClassObject : iid, object);
}

HRESULT __stdcall WbemObject::Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) {
  if (!name) return WBEM_E_INVALID_PARAMETER;
  const WmiProperty* const property = FindProperty(class_, name);
  const std::wstring call = L"Put." + std::wstring(property ? property->name : name);
  return WmiCalls().Answered(call, Described(value), Refusal(property, flags, value, type, is_instance_), [&](const Answer&) {
    if (V_VT(value) == VT_NULL) {
      properties_.erase(property->name);
    } else if (V_VT(value) == VT_BSTR) {
      properties_[property->name] = std::wstring(V_BSTR(value));
    } else {
      properties_[property->name] = V_BOOL(value) == VARIANT_TRUE;
    }
    return S_OK;
  });
}

HRESULT __stdcall WbemObject::SpawnInstance(LONG flags, IWbemClassObject** instance) {
  if (!instance) return WBEM_E_INVALID_PARAMETER;
  *instance = nullptr;
  const HRESULT refusal = flags != 0 ? WBEM_E_INVALID_PARAMETER : is_instance_ ? WBEM_E_INVALID_OPERATION : WBEM_S_NO_ERROR;
  return WmiCalls().Answered(L"SpawnInstance", class_.name, refusal, [&](const Answer& answer) -> HRESULT {
    if (answer.null_pointer) return S_OK;
    *instance = new (std::nothrow) WbemObject(class_, WmiProperties());
    return *instance ? WBEM_S_NO_ERROR : WBEM_E_OUT_OF_MEMORY;
  });
}

}  // namespace crv::standins
