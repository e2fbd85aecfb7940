// What decides whether Windows Defender may run: the policy that switches it off, and the user's veto against that.
#include <windows.h>

#include "shared/area.h"
#include "shared/console.h"
#include "shared/words.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Microsoft\\Windows Defender";
constexpr wchar_t kPolicyValue[] = L"DisableAntiSpyware";
constexpr wchar_t kVetoKey[] = L"SOFTWARE\\CORVID Software\\Corvid\\Wsc";
constexpr wchar_t kVetoValue[] = L"IReallyWantDefenderOnAndDecreasedPerformanceOnLegacySystems";

std::wstring Policy() {
  if (const std::optional<DWORD> number = registry::ReadNumber(kPolicyKey, kPolicyValue)) return std::to_wstring(*number);
  return registry::KeyExists(kPolicyKey) ? L"(not set)" : L"(no key)";
}

Table Rows() {
  const std::optional<DWORD> veto = registry::ReadNumber(kVetoKey, kVetoValue);
  return {{L"Windows Defender", L"Value"}, {kPolicyValue, Policy()}, {L"veto", veto ? std::to_wstring(*veto) : L"(not set)"}};
}

void SetVeto(const Words& words) { registry::WriteNumber(kVetoKey, kVetoValue, NumberFrom(words[0])); }

void Clear() {
  registry::DeleteKey(kPolicyKey);
  registry::DeleteValue(kVetoKey, kVetoValue);
}

}  // namespace

const Area& DefenderArea() {
  static const Area area = {
      .commands = {{L"defender-veto", L"N", L"the number by which a user forbids switching Windows Defender off; 42 does", 1, 1,
                    &SetVeto}},
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
