#include "wsc/registered_name.h"

#include <windows.h>

#include <cwchar>

#include "base/format_message.h"
#include "base/log.h"
#include "root/registry.h"
#include "root/scoped_handle.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

LONG WriteText(const std::wstring& value_name, const wchar_t* text) {
  root::ScopedRegistryKey key;
  const LONG result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kModuleKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                                      key.put(), nullptr);
  if (result != ERROR_SUCCESS) return result;
  const DWORD size = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t));
  return RegSetValueExW(key.get(), value_name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text), size);
}

}  // namespace

std::wstring registered_name_value(const std::string& interface_type_name) {
  const std::size_t blank = interface_type_name.rfind(' ');
  return FromUtf8(blank == std::string::npos ? interface_type_name : interface_type_name.substr(blank + 1));
}

bool registered_name_differs(const std::wstring& value_name) {
  std::wstring name;  // a failed read leaves it empty, and so different
  static_cast<void>(root::QueryString(HKEY_LOCAL_MACHINE, kModuleKey, value_name.c_str(), name, 0));
  return name != kDisplayName;
}

void write_registered_name(const std::wstring& value_name) {
  if (WriteText(value_name, kDisplayName) != ERROR_SUCCESS) log::Error(tag, "cannot write registered name");
}

}  // namespace crv::wsc
