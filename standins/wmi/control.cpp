#include "wmi/control.h"

#include "shared/registry.h"
#include "wmi/schema.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins WMI";
const std::wstring kInstances = std::wstring(kWmiKey) + L"\\Instances";
constexpr wchar_t kRoot[] = L"root\\";

std::wstring NamespaceKey(const std::wstring& name_space) { return kInstances + L"\\" + name_space.substr(std::size(kRoot) - 1); }

std::wstring InstanceKey(const std::wstring& name_space, const std::wstring& class_name, const std::wstring& key) {
  return NamespaceKey(name_space) + L"\\" + class_name + L"\\" + key;
}

WmiInstance ReadInstance(const std::wstring& name_space, const std::wstring& class_name, const std::wstring& key) {
  WmiInstance instance = {name_space, class_name, key, {}};
  const std::wstring path = InstanceKey(name_space, class_name, key);
  for (const std::wstring& name : registry::ValueNames(path)) {
    if (const std::optional<std::wstring> text = registry::ReadText(path, name.c_str())) {
      instance.properties[name] = *text;
    } else if (const std::optional<DWORD> number = registry::ReadNumber(path, name.c_str())) {
      instance.properties[name] = *number != 0;
    }
  }
  return instance;
}

}  // namespace

std::vector<WmiInstance> WmiInstances() {
  const NamedLock lock(kLock);
  std::vector<WmiInstance> instances;
  for (const wchar_t* const name_space : {kOldNamespace, kNewNamespace}) {
    for (const std::wstring& class_name : registry::Subkeys(NamespaceKey(name_space))) {
      for (const std::wstring& key : registry::Subkeys(NamespaceKey(name_space) + L"\\" + class_name)) {
        instances.push_back(ReadInstance(name_space, class_name, key));
      }
    }
  }
  return instances;
}

std::optional<WmiInstance> FindWmiInstance(const std::wstring& name_space, const std::wstring& class_name,
                                           const std::wstring& key) {
  const NamedLock lock(kLock);
  if (!registry::KeyExists(InstanceKey(name_space, class_name, key))) return std::nullopt;
  return ReadInstance(name_space, class_name, key);
}

void WriteWmiInstance(const WmiInstance& instance) {
  const NamedLock lock(kLock);
  const std::wstring path = InstanceKey(instance.name_space, instance.class_name, instance.key);
  registry::DeleteKey(path);
  for (const auto& [name, value] : instance.properties) {
    if (const std::wstring* const text = std::get_if<std::wstring>(&value)) {
      registry::WriteText(path, name.c_str(), *text);
    } else {
      registry::WriteNumber(path, name.c_str(), std::get<bool>(value));
    }
  }
}

void RemoveWmiInstance(const std::wstring& name_space, const std::wstring& class_name, const std::wstring& key) {
  registry::DeleteKey(InstanceKey(name_space, class_name, key));
}

const ScriptedCalls& WmiCalls() {
  static const ScriptedCalls calls = [] {
    std::vector<ScriptedCalls::Call> all = {
        {L"Create", true}, {L"ConnectServer", true}, {L"GetObject", true}, {L"SpawnInstance", true},
        {L"Put"},          {L"PutInstance"},         {L"DeleteInstance"}};
    for (const std::wstring& property : WmiPropertyNames()) all.push_back({L"Put." + property});
    return ScriptedCalls(kWmiKey, kLock, std::move(all));
  }();
  return calls;
}

void ClearWmi() {
  const NamedLock lock(kLock);
  registry::DeleteKey(kWmiKey);
}

}  // namespace crv::standins
