#include "wsc/legacy_wmi.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "root/file_version.h"
#include "root/module_path.h"
#include "wsc/back_end.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

constexpr wchar_t kInstanceKey[] = L"{5e2b8c14-a7d3-4f09-9c61-3b8e0f4d7a25}";  // of every class
constexpr wchar_t kCompanyName[] = L"CORVID Software";

std::wstring InstancePath(const std::wstring& class_name) { return class_name + L".instanceGuid=\"" + kInstanceKey + L"\""; }

// The file version of this library, "1.2.3.4".
std::wstring ModuleVersion() {
  const root::FileVersion version = root::GetFileVersion(root::GetThisModulePath());
  wchar_t text[4 * 6];  // four numbers of at most five digits, each with a dot or the NUL behind it
  _snwprintf(text, std::size(text), L"%hu.%hu.%hu.%hu", version.major, version.minor, version.build, version.revision);
  return text;
}

// A new instance of the class, not yet written.
IWbemClassObjectPtr SpawnInstance(const IWbemServicesPtr& services, const std::wstring& class_name) {
  IWbemClassObjectPtr wmi_class;
  HRESULT result = services->GetObject(_bstr_t(class_name.c_str()).GetBSTR(), 0, nullptr, &wmi_class, nullptr);
  if (FAILED(result)) throw exceptions::error(result, "wmi GetObjectW");
  IWbemClassObjectPtr instance;
  result = wmi_class->SpawnInstance(0, &instance);
  if (FAILED(result)) throw exceptions::error(result, "wmi SpawnInstance");
  return instance;
}

void PutProperties(IWbemClassObject& instance, const std::wstring& class_name, ProductState state, SignatureStatus signatures) {
  const bool on = state == ProductState::on;
  const bool up_to_date = signatures == SignatureStatus::up_to_date;
  put_property(instance, L"instanceGuid", kInstanceKey);
  put_property(instance, L"displayName", kDisplayName);
  put_property(instance, L"companyName", kCompanyName);
  put_property(instance, L"versionNumber", ModuleVersion().c_str());
  if (class_name == kAntiVirusClass) {
    put_property(instance, L"productUptoDate", up_to_date);
    put_property(instance, L"onAccessScanningEnabled", on);
  } else if (class_name == kAntiSpywareClass) {
    put_property(instance, L"productUptoDate", up_to_date);
    put_property(instance, L"productEnabled", on);
  } else {
    put_property(instance, L"enabled", on);
  }
}

}  // namespace

IWbemServicesPtr wmi_connect() {
  const wchar_t* const name = wmi_has_security_center2() ? L"root\\SecurityCenter2" : L"root\\SecurityCenter";
  IWbemLocatorPtr locator;
  HRESULT result =
      CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, reinterpret_cast<void**>(&locator));
  if (FAILED(result)) throw exceptions::error(result, "create CLSID_WbemLocator");
  IWbemServicesPtr services;
  result = locator->ConnectServer(_bstr_t(name).GetBSTR(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services);
  if (FAILED(result)) throw exceptions::error(result, "wbem_locator->ConnectServer");
  return services;
}

void put_property(IWbemClassObject& instance, const wchar_t* name, _variant_t value) {
  const HRESULT result = instance.Put(name, 0, &value, 0);
  if (FAILED(result)) throw exceptions::error(result, "wmi Put prop failed: %ls", name);
}

void update_xp(const std::wstring& class_name, ProductState state, SignatureStatus signatures) {
  log::Info(tag, "update_xp %ls", class_name.c_str());
  const IWbemServicesPtr services = wmi_connect();
  const IWbemClassObjectPtr instance = SpawnInstance(services, class_name);
  PutProperties(*instance, class_name, state, signatures);
  const HRESULT result = services->PutInstance(instance, 0, nullptr, nullptr);
  if (FAILED(result)) throw exceptions::error(result, "update status PutInstance");
}

void unregistration_xp(const std::wstring& class_name) {
  log::Info(tag, "unregistration_xp %ls", class_name.c_str());
  _bstr_t path(InstancePath(class_name).c_str());
  const IWbemServicesPtr services = wmi_connect();
  const HRESULT result = services->DeleteInstance(path.GetBSTR(), 0, nullptr, nullptr);
  if (FAILED(result)) throw exceptions::error(result, "wmi DeleteInstance");
}

}  // namespace crv::wsc
