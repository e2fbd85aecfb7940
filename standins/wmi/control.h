// What the stand-in for the WMI namespaces of Security Center holds and how it is told to misbehave. Everything lies in the
// registry, so it reaches every process. Failures to reach the registry throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\WMI
//     Instances\<namespace>\<class>\<key>   one key per instance; its values are the properties that were set, texts and DWORDs
//                                           for booleans. A namespace stands there without its root.
//     Script, Journal                       see scripted_calls.h
//
// Calls are `Create` (of the locator), `ConnectServer`, `GetObject`, `SpawnInstance`, `Put` (of any property), `Put.<property>`,
// `PutInstance`, `DeleteInstance`.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr wchar_t kWmiKey[] = L"SOFTWARE\\Corvid Stand-ins\\WMI";

// The namespaces; WMI takes their names without regard to case.
inline constexpr wchar_t kOldNamespace[] = L"root\\SecurityCenter";
inline constexpr wchar_t kNewNamespace[] = L"root\\SecurityCenter2";  // Windows Vista and later

using WmiValue = std::variant<std::wstring, bool>;
using WmiProperties = std::map<std::wstring, WmiValue>;

struct WmiInstance {
  std::wstring name_space;  // one of the two above
  std::wstring class_name;
  std::wstring key;          // the value of its key property
  WmiProperties properties;  // with the key property

  bool operator==(const WmiInstance&) const = default;
};

std::vector<WmiInstance> WmiInstances();
std::optional<WmiInstance> FindWmiInstance(const std::wstring& name_space, const std::wstring& class_name,
                                           const std::wstring& key);
void WriteWmiInstance(const WmiInstance& instance);  // replaces the one with the same key as a whole
void RemoveWmiInstance(const std::wstring& name_space, const std::wstring& class_name, const std::wstring& key);

const ScriptedCalls& WmiCalls();

void ClearWmi();  // instances, scripts and journal

}  // namespace crv::standins
