// The stand-in for the suite's firewall library (crvData.dll): whether the firewall is on, what was called, and what it answers.
// Everything lies in the registry. Failures to reach it throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Firewall
//     On                DWORD 1 after a successful start
//     Script, Journal   see scripted_calls.h; calls are "crvGetFirewall", "Firewall.Start", "crvFreeFirewall". An operation of the
//                       object that nobody should call stands in the journal as "fault: operation N"
#pragma once

#include <windows.h>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr wchar_t kFirewallKey[] = L"SOFTWARE\\Corvid Stand-ins\\Firewall";

bool FirewallIsOn();
void SetFirewallOn(bool on);

const ScriptedCalls& FirewallCalls();

void ClearFirewall();  // off, nothing scripted, an empty journal

}  // namespace crv::standins
