#include "security_center/product_calls.h"

#include <oleauto.h>

#include <cwchar>
#include <string>

#include "security_center/control.h"

namespace crv::standins {
namespace {

constexpr HRESULT kNotRegistered = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr DWORD kLastState = 3;  // on, off, snoozed, expired

// The length that is stored before the text must be the text's own, as it is in a string made by SysAllocString.
bool IsText(BSTR text) { return text && *text && SysStringLen(text) == std::wcslen(text); }

bool IsBool(BOOL value) { return value == TRUE || value == FALSE; }

std::wstring Quoted(BSTR text) { return text ? L"\"" + std::wstring(text) + L"\"" : L"null"; }

template <typename Perform>
HRESULT Call(const wchar_t* interface_name, const wchar_t* method, const std::wstring& arguments, bool arguments_are_valid,
             Perform perform) {
  return SecurityCenterCalls().Answered(std::wstring(interface_name) + L"." + method, arguments,
                                        arguments_are_valid ? S_OK : E_INVALIDARG, perform);
}

}  // namespace

HRESULT CreateCall(const wchar_t* interface_name, bool& null_pointer) {
  return Call(interface_name, L"Create", L"", true, [&](const Answer& answer) {
    null_pointer = answer.null_pointer;
    return S_OK;
  });
}

HRESULT RegisterCall(const wchar_t* interface_name, BSTR path, BSTR name, BOOL flag1, BOOL flag2) {
  const std::wstring arguments =
      Quoted(path) + L", " + Quoted(name) + L", " + std::to_wstring(flag1) + L", " + std::to_wstring(flag2);
  const bool valid = IsText(path) && IsText(name) && !flag1 && !flag2;
  return Call(interface_name, L"Register", arguments, valid, [&](const Answer&) {
    WriteProduct(interface_name, {path, name, std::nullopt, std::nullopt});
    return S_OK;
  });
}

HRESULT UnregisterCall(const wchar_t* interface_name) {
  return Call(interface_name, L"Unregister", L"", true, [&](const Answer&) {
    if (!ReadProduct(interface_name)) return kNotRegistered;
    RemoveProduct(interface_name);
    return S_OK;
  });
}

HRESULT UpdateStatusCall(const wchar_t* interface_name, DWORD state, std::optional<BOOL> signatures_up_to_date) {
  std::wstring arguments = std::to_wstring(state);
  if (signatures_up_to_date) arguments += L", " + std::to_wstring(*signatures_up_to_date);
  const bool valid = state <= kLastState && IsBool(signatures_up_to_date.value_or(FALSE));
  return Call(interface_name, L"UpdateStatus", arguments, valid, [&](const Answer&) {
    std::optional<Product> product = ReadProduct(interface_name);
    if (!product) return kNotRegistered;
    product->state = state;
    if (signatures_up_to_date) product->signatures_up_to_date = static_cast<DWORD>(*signatures_up_to_date);
    WriteProduct(interface_name, *product);
    return S_OK;
  });
}

}  // namespace crv::standins
