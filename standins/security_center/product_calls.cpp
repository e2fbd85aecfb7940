#include "security_center/product_calls.h"

#include <oleauto.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "base/exceptions.h"
#include "control/named_lock.h"
#include "control/security_center_control.h"

namespace crv::standins {
namespace {

constexpr HRESULT kNotRegistered = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr DWORD kLastState = 3;  // on, off, snoozed, expired

// The length that is stored before the text must be the text's own, as it is in a string made by SysAllocString.
bool IsText(BSTR text) { return text && *text && SysStringLen(text) == std::wcslen(text); }

bool IsBool(BOOL value) { return value == TRUE || value == FALSE; }

std::wstring Quoted(BSTR text) { return text ? L"\"" + std::wstring(text) + L"\"" : L"null"; }

// One call from the answer to the journal. `perform` changes the state and gives the normal answer.
template <typename Perform>
HRESULT Call(const wchar_t* interface_name, const wchar_t* method, const std::wstring& arguments, bool arguments_are_valid,
             Perform perform) {
  try {
    const NamedLock lock(kSecurityCenterLock);
    if (!lock.held()) return HRESULT_FROM_WIN32(WAIT_TIMEOUT);
    const std::wstring name = std::wstring(interface_name) + L"." + method;
    HRESULT result = E_INVALIDARG;
    if (arguments_are_valid) {
      const Answer answer = TakeAnswer(name);
      result = answer.code.value_or(S_OK);
      if (SUCCEEDED(result)) {
        const HRESULT performed = perform(answer);
        if (!answer.code) result = performed;
      }
    }
    wchar_t code[16];
    _snwprintf(code, std::size(code), L"0x%08x", static_cast<unsigned>(result));
    AppendCall(name + L"(" + arguments + L") = " + code);
    return result;
  } catch (const exceptions::error& error) {
    return HRESULT_FROM_WIN32(error.code());
  } catch (...) {
    return E_UNEXPECTED;
  }
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
