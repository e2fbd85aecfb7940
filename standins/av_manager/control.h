// What the stand-in for the suite's AV manager (cavm4h.dll) knows and how it is told to misbehave. Everything lies in the registry,
// so it reaches every process. Failures to reach the registry throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\AV Manager
//     Providers         list, one "<state> <name>" per provider, in the order in which the library hands them out
//     Script, Journal   see scripted_calls.h; calls are the six functions. "null": the library hands out no list
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr wchar_t kAvManagerKey[] = L"SOFTWARE\\Corvid Stand-ins\\AV Manager";

struct Provider {
  std::wstring name;
  DWORD state;  // 0 stopped, 2 suspended, anything else running

  bool operator==(const Provider&) const = default;
};

std::vector<Provider> ReadProviders();
void WriteProviders(const std::vector<Provider>& providers);

const ScriptedCalls& AvManagerCalls();

void ClearAvManager();  // three providers that run, nothing scripted, an empty journal

}  // namespace crv::standins
