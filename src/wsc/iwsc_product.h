// The published Security Center interfaces for products (Windows Vista SP1 and later), which the compiler's headers lack, as far
// as the module calls them. The order of the methods is part of the binary interface.
#pragma once

#include <comdef.h>
#include <windows.h>

#include "avmgr/product_state.h"

inline constexpr CLSID CLSID_WscIsv = {0xF2102C37, 0x90C3, 0x450C, {0xB3, 0xF6, 0x92, 0xBE, 0x16, 0x93, 0xBD, 0xF2}};
inline constexpr IID IID_IWscAVStatus = {0x3901A765, 0xAB91, 0x4BA9, {0xA5, 0x53, 0x5B, 0x85, 0x38, 0xDE, 0xB8, 0x40}};
inline constexpr IID IID_IWscASStatus = {0x024E9756, 0xBA6C, 0x4AD1, {0x83, 0x21, 0x87, 0xBA, 0xE7, 0x8F, 0xD0, 0xE3}};
inline constexpr IID IID_IWscFWStatus = {0x9B8F6C6E, 0x8A4A, 0x4891, {0xAF, 0x63, 0x1A, 0x2F, 0x50, 0x92, 0x40, 0x40}};

// All methods answer E_PENDING (0x8000000A) while Security Center is not ready.
struct IWscAVStatus : IUnknown {
  virtual HRESULT __stdcall Register(BSTR program_path, BSTR display_name, BOOL reserved1, BOOL reserved2) = 0;
  virtual HRESULT __stdcall Unregister() = 0;
  virtual HRESULT __stdcall UpdateStatus(crv::wsc::ProductState state, BOOL signatures_up_to_date) = 0;
};

struct IWscASStatus : IUnknown {
  virtual HRESULT __stdcall Register(BSTR program_path, BSTR display_name, BOOL reserved1, BOOL reserved2) = 0;
  virtual HRESULT __stdcall Unregister() = 0;
  virtual HRESULT __stdcall UpdateStatus(crv::wsc::ProductState state, BOOL signatures_up_to_date) = 0;
};

struct IWscFWStatus : IUnknown {
  virtual HRESULT __stdcall Register(BSTR program_path, BSTR display_name, BOOL reserved1, BOOL reserved2) = 0;
  virtual HRESULT __stdcall Unregister() = 0;
  virtual HRESULT __stdcall UpdateStatus(crv::wsc::ProductState state) = 0;
};

namespace crv::wsc {

// The owner of one interface pointer. Using an empty one raises the COM support library's error for E_POINTER.
template <typename Interface>
struct InterfacePointer;
template <>
struct InterfacePointer<IWscAVStatus> {
  using Type = _com_ptr_t<_com_IIID<IWscAVStatus, &IID_IWscAVStatus>>;
};
template <>
struct InterfacePointer<IWscASStatus> {
  using Type = _com_ptr_t<_com_IIID<IWscASStatus, &IID_IWscASStatus>>;
};
template <>
struct InterfacePointer<IWscFWStatus> {
  using Type = _com_ptr_t<_com_IIID<IWscFWStatus, &IID_IWscFWStatus>>;
};

}  // namespace crv::wsc
