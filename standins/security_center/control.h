// What the stand-in for Security Center's product class knows and how it is told to misbehave. Everything lies in the registry
// under HKLM, so it reaches every process. Failures to reach the registry throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Security Center
//     Products
//       <interface>       there while the product is registered. A list: path, name, and after the first UpdateStatus the state
//                         and, but for the firewall, 1 for signatures that are up to date or 0. One value, so that a process which
//                         is ended at any moment leaves the product as it was or as it is to be
//     Script, Journal     see scripted_calls.h; calls are named "<interface>.<method>"
//
// Calls are `Create` (the class object's answer when it is asked for the interface), `Register`, `Unregister`, `UpdateStatus`.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "shared/scripted_calls.h"

namespace crv::standins {

inline constexpr wchar_t kSecurityCenterKey[] = L"SOFTWARE\\Corvid Stand-ins\\Security Center";
inline constexpr wchar_t kSecurityCenterLock[] = L"Global\\Corvid Stand-ins Security Center";  // held by each call as a whole

inline constexpr wchar_t kAntiVirus[] = L"IWscAVStatus";
inline constexpr wchar_t kAntiSpyware[] = L"IWscASStatus";
inline constexpr wchar_t kFirewall[] = L"IWscFWStatus";
inline constexpr const wchar_t* kProductInterfaces[] = {kAntiVirus, kAntiSpyware, kFirewall};
inline constexpr const wchar_t* kProductCalls[] = {L"Create", L"Register", L"Unregister", L"UpdateStatus"};

struct Product {
  std::wstring path;
  std::wstring name;
  std::optional<DWORD> state;
  std::optional<DWORD> signatures_up_to_date;  // only beside a state
};

std::optional<Product> ReadProduct(const std::wstring& interface_name);  // empty: not registered
void WriteProduct(const std::wstring& interface_name, const Product& product);
void RemoveProduct(const std::wstring& interface_name);

const ScriptedCalls& SecurityCenterCalls();

void ClearSecurityCenter();  // products, scripts and journal

}  // namespace crv::standins
