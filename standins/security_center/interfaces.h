// Security Center's published product interfaces, declared from the side of the server. The order of the methods is part of the
// binary interface.
#pragma once

#include <windows.h>
#include <unknwn.h>

namespace crv::standins {

inline constexpr CLSID kWscIsvClass = {0xF2102C37, 0x90C3, 0x450C, {0xB3, 0xF6, 0x92, 0xBE, 0x16, 0x93, 0xBD, 0xF2}};
inline constexpr IID kAntiVirusIid = {0x3901A765, 0xAB91, 0x4BA9, {0xA5, 0x53, 0x5B, 0x85, 0x38, 0xDE, 0xB8, 0x40}};
inline constexpr IID kAntiSpywareIid = {0x024E9756, 0xBA6C, 0x4AD1, {0x83, 0x21, 0x87, 0xBA, 0xE7, 0x8F, 0xD0, 0xE3}};
inline constexpr IID kFirewallIid = {0x9B8F6C6E, 0x8A4A, 0x4891, {0xAF, 0x63, 0x1A, 0x2F, 0x50, 0x92, 0x40, 0x40}};

// Anti-virus and anti-spyware have the same methods under different identifiers.
struct ISignatureProduct : IUnknown {
  virtual HRESULT __stdcall Register(BSTR path, BSTR name, BOOL flag1, BOOL flag2) = 0;
  virtual HRESULT __stdcall Unregister() = 0;
  virtual HRESULT __stdcall UpdateStatus(DWORD state, BOOL signatures_up_to_date) = 0;
};

struct IFirewallProduct : IUnknown {
  virtual HRESULT __stdcall Register(BSTR path, BSTR name, BOOL flag1, BOOL flag2) = 0;
  virtual HRESULT __stdcall Unregister() = 0;
  virtual HRESULT __stdcall UpdateStatus(DWORD state) = 0;
};

}  // namespace crv::standins
