// What Security Center does and answers when a product is registered, unregistered or updated: scripted answers, argument checks,
// the state that other processes see, one journal line per call. Each call is one step towards other processes. All functions
// answer an HRESULT, never throw and may be called from any thread. Codes of their own: E_INVALIDARG for arguments that make no
// sense, 0x80070002 for a product that is not registered, 0x80070102 when another process holds the state for too long.
#pragma once

#include <windows.h>
#include <wtypes.h>

#include <optional>

namespace crv::standins {

// `null_pointer` tells a success that has to be given without an interface.
HRESULT CreateCall(const wchar_t* interface_name, bool& null_pointer);
HRESULT RegisterCall(const wchar_t* interface_name, BSTR path, BSTR name, BOOL flag1, BOOL flag2);
HRESULT UnregisterCall(const wchar_t* interface_name);
HRESULT UpdateStatusCall(const wchar_t* interface_name, DWORD state, std::optional<BOOL> signatures_up_to_date);

}  // namespace crv::standins
