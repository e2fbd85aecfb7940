#include "wmi/wbem_services.h"

#include <cwchar>
#include <new>

#include "wmi/control.h"
#include "wmi/schema.h"
#include "wmi/object_path.h"
#include "wmi/wbem_object.h"

namespace crv::standins {
namespace {

std::wstring Quoted(BSTR text) { return text ? L"\"" + std::wstring(text) + L"\"" : L"null"; }

// What a path names in this namespace.
struct Target {
  const WmiClass* wmi_class = nullptr;
  ObjectPath path;
};

// `no_class` is the code for a class that the namespace lacks.
HRESULT Resolve(const wchar_t* name_space, BSTR text, LONG flags, HRESULT no_class, Target& target) {
  if (flags != 0 || !IsBstr(text)) return WBEM_E_INVALID_PARAMETER;
  const std::optional<ObjectPath> path = ParseObjectPath(text);
  if (!path) return WBEM_E_INVALID_OBJECT_PATH;
  target.path = *path;
  target.wmi_class = FindClass(name_space, path->class_name);
  if (!target.wmi_class) return no_class;
  return !path->key_name || _wcsicmp(path->key_name->c_str(), kKeyProperty) == 0 ? WBEM_S_NO_ERROR : WBEM_E_INVALID_OBJECT_PATH;
}

// The key value of an instance; empty when it is not set.
std::wstring KeyOf(const WbemObject& instance) {
  const auto found = instance.properties().find(kKeyProperty);
  return found == instance.properties().end() ? std::wstring() : std::get<std::wstring>(found->second);
}

HRESULT PutRefusal(const wchar_t* name_space, const WbemObject* instance, LONG flags) {
  constexpr LONG kKnown = WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY;
  if ((flags & ~kKnown) != 0 || flags == kKnown) return WBEM_E_INVALID_PARAMETER;
  if (!instance || !instance->is_instance()) return WBEM_E_INVALID_OBJECT;
  if (FindClass(name_space, instance->wmi_class().name) != &instance->wmi_class()) return WBEM_E_INVALID_CLASS;
  const std::wstring key = KeyOf(*instance);
  return key.empty() || key.find(L'\\') != std::wstring::npos ? WBEM_E_ILLEGAL_NULL : WBEM_S_NO_ERROR;
}

}  // namespace

WbemServices::WbemServices(const wchar_t* name_space) : ComObject(IID_IWbemServices), name_space_(name_space) {}

HRESULT __stdcall WbemServices::GetObject(const BSTR path, LONG flags, IWbemContext*, IWbemClassObject** object,
                                          IWbemCallResult** result) {
  if (result) *result = nullptr;
  if (!object) return WBEM_E_INVALID_PARAMETER;
  *object = nullptr;
  Target target;
  const HRESULT refusal = Resolve(name_space_, path, flags, WBEM_E_NOT_FOUND, target);
  return WmiCalls().Answered(L"GetObject", Quoted(path), refusal, [&](const Answer& answer) -> HRESULT {
    if (answer.null_pointer) return S_OK;
    if (!target.path.key_name) {
      *object = new (std::nothrow) WbemObject(*target.wmi_class);
    } else {
      const std::optional<WmiInstance> stored = FindWmiInstance(name_space_, target.wmi_class->name, target.path.key_value);
      if (!stored) return WBEM_E_NOT_FOUND;
      *object = new (std::nothrow) WbemObject(*target.wmi_class, stored->properties);
    }
    return *object ? WBEM_S_NO_ERROR : WBEM_E_OUT_OF_MEMORY;
  });
}

HRESULT __stdcall WbemServices::PutInstance(IWbemClassObject* object, LONG flags, IWbemContext*, IWbemCallResult** result) {
  if (result) *result = nullptr;
  const WbemObject* const instance = WbemObject::From(object);
  const std::wstring class_name = instance ? instance->wmi_class().name : L"null";
  const HRESULT refusal = PutRefusal(name_space_, instance, flags);
  return WmiCalls().Answered(L"PutInstance", class_name, refusal, [&](const Answer&) -> HRESULT {
    const std::wstring key = KeyOf(*instance);
    const bool exists = FindWmiInstance(name_space_, class_name, key).has_value();
    if (exists && flags == WBEM_FLAG_CREATE_ONLY) return WBEM_E_ALREADY_EXISTS;
    if (!exists && flags == WBEM_FLAG_UPDATE_ONLY) return WBEM_E_NOT_FOUND;
    WriteWmiInstance({name_space_, class_name, key, instance->properties()});
    return S_OK;
  });
}

HRESULT __stdcall WbemServices::DeleteInstance(const BSTR path, LONG flags, IWbemContext*, IWbemCallResult** result) {
  if (result) *result = nullptr;
  Target target;
  HRESULT refusal = Resolve(name_space_, path, flags, WBEM_E_INVALID_CLASS, target);
  if (SUCCEEDED(refusal) && !target.path.key_name) refusal = WBEM_E_INVALID_OBJECT_PATH;
  return WmiCalls().Answered(L"DeleteInstance", Quoted(path), refusal, [&](const Answer&) -> HRESULT {
    const std::wstring& key = target.path.key_value;
    if (!FindWmiInstance(name_space_, target.wmi_class->name, key)) return WBEM_E_NOT_FOUND;
    RemoveWmiInstance(name_space_, target.wmi_class->name, key);
    return S_OK;
  });
}

}  // namespace crv::standins
