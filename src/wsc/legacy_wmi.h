// Publishes the suite's products as WMI instances of Security Center's classes, on systems without its COM class (back_end.h).
// There is one instance per class ("AntiVirusProduct", "AntiSpywareProduct", "FirewallProduct"); nothing else outlives a call.
// Runs on the calling thread, which has initialised COM. Failures throw `crv::exceptions::error` with the HRESULT and the name of
// the failed step; a shortage of memory or a null pointer from WMI raises the COM support library's error.
#pragma once

#include <comdef.h>
#include <wbemcli.h>

#include <string>

#include "avmgr/product_state.h"

namespace crv::wsc {

_COM_SMARTPTR_TYPEDEF(IWbemLocator, IID_IWbemLocator);
_COM_SMARTPTR_TYPEDEF(IWbemServices, IID_IWbemServices);
_COM_SMARTPTR_TYPEDEF(IWbemClassObject, IID_IWbemClassObject);

inline constexpr wchar_t kAntiVirusClass[] = L"AntiVirusProduct";
inline constexpr wchar_t kAntiSpywareClass[] = L"AntiSpywareProduct";
inline constexpr wchar_t kFirewallClass[] = L"FirewallProduct";

// Makes or replaces the class's instance. Also throws as root::GetThisModulePath and root::GetFileVersion do. The instance is
// written as a whole at the end or not at all.
void update_xp(const std::wstring& class_name, ProductState state, SignatureStatus signatures);

// Deletes the class's instance; one that does not exist is a failure.
void unregistration_xp(const std::wstring& class_name);

// Connects to Security Center's namespace on this machine (back_end.h), as the calling user.
[[nodiscard]] IWbemServicesPtr wmi_connect();

// Sets one property. The value is cleared at the end, also when the property is rejected.
void put_property(IWbemClassObject& instance, const wchar_t* name, _variant_t value);

}  // namespace crv::wsc
