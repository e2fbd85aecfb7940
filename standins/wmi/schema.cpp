#include "wmi/schema.h"

#include <algorithm>
#include <cwchar>

#include "wmi/control.h"

namespace crv::standins {
namespace {

bool SameName(const std::wstring& a, const wchar_t* b) { return _wcsicmp(a.c_str(), b) == 0; }

constexpr WmiProperty kKey = {kKeyProperty, WmiType::text};
constexpr WmiProperty kDisplayName = {L"displayName", WmiType::text};
constexpr WmiProperty kCompanyName = {L"companyName", WmiType::text};
constexpr WmiProperty kVersion = {L"versionNumber", WmiType::text};
constexpr WmiProperty kUpToDate = {L"productUptoDate", WmiType::boolean};

const std::vector<WmiClass>& Classes() {
  static const std::vector<WmiClass> classes = {
      {L"AntiVirusProduct",
       nullptr,
       {kKey, kDisplayName, kCompanyName, kVersion, kUpToDate, {L"onAccessScanningEnabled", WmiType::boolean}}},
      {L"AntiSpywareProduct",
       kNewNamespace,
       {kKey, kDisplayName, kCompanyName, kVersion, kUpToDate, {L"productEnabled", WmiType::boolean}}},
      {L"FirewallProduct", nullptr, {kKey, kDisplayName, kCompanyName, kVersion, {L"enabled", WmiType::boolean}}}};
  return classes;
}

}  // namespace

const wchar_t* FindNamespace(const std::wstring& name) {
  std::wstring plain = name;
  std::replace(plain.begin(), plain.end(), L'/', L'\\');
  if (plain.starts_with(L"\\\\.\\")) plain.erase(0, 4);
  for (const wchar_t* const name_space : {kOldNamespace, kNewNamespace}) {
    if (SameName(plain, name_space)) return name_space;
  }
  return nullptr;
}

const WmiClass* FindClass(const std::wstring& name_space, const std::wstring& name) {
  for (const WmiClass& wmi_class : Classes()) {
    if (SameName(name, wmi_class.name) && (!wmi_class.only_namespace || name_space == wmi_class.only_namespace))
      return &wmi_class;
  }
  return nullptr;
}

const WmiProperty* FindProperty(const WmiClass& wmi_class, const std::wstring& name) {
  const auto found = std::find_if(wmi_class.properties.begin(), wmi_class.properties.end(),
                                  [&](const WmiProperty& property) { return SameName(name, property.name); });
  return found == wmi_class.properties.end() ? nullptr : &*found;
}

std::vector<std::wstring> WmiPropertyNames() {
  std::vector<std::wstring> names;
  for (const WmiClass& wmi_class : Classes()) {
    for (const WmiProperty& property : wmi_class.properties) {
      if (std::find(names.begin(), names.end(), property.name) == names.end()) names.push_back(property.name);
    }
  }
  return names;
}

}  // namespace crv::standins
