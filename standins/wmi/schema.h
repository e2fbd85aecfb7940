// The classes of Security Center's WMI namespaces. Names compare without regard to case, as everywhere in WMI. Any thread.
#pragma once

#include <string>
#include <vector>

namespace crv::standins {

enum class WmiType { text, boolean };

struct WmiProperty {
  const wchar_t* name;
  WmiType type;
};

struct WmiClass {
  const wchar_t* name;
  const wchar_t* only_namespace;  // null: in both
  std::vector<WmiProperty> properties;
};

inline constexpr wchar_t kKeyProperty[] = L"instanceGuid";  // of every class

// Null when there is no such namespace, class in that namespace, or property of that class. A namespace may be given with
// slashes and with "\\.\" in front.
const wchar_t* FindNamespace(const std::wstring& name);
const WmiClass* FindClass(const std::wstring& name_space, const std::wstring& name);
const WmiProperty* FindProperty(const WmiClass& wmi_class, const std::wstring& name);

std::vector<std::wstring> WmiPropertyNames();  // of all classes, each once

}  // namespace crv::standins
