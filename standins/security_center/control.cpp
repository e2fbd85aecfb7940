#include "security_center/control.h"

#include <cwchar>

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

const std::wstring kProducts = std::wstring(kSecurityCenterKey) + L"\\Products";

// The number at that place of a product's list; empty when the list ends before it.
std::optional<DWORD> NumberAt(const std::vector<std::wstring>& list, std::size_t place) {
  if (list.size() <= place) return std::nullopt;
  return static_cast<DWORD>(std::wcstoul(list[place].c_str(), nullptr, 10));
}

}  // namespace

std::optional<Product> ReadProduct(const std::wstring& interface_name) {
  const std::vector<std::wstring> list = registry::ReadList(kProducts, interface_name.c_str());
  if (list.size() < 2) return std::nullopt;
  return Product{list[0], list[1], NumberAt(list, 2), NumberAt(list, 3)};
}

void WriteProduct(const std::wstring& interface_name, const Product& product) {
  std::vector<std::wstring> list = {product.path, product.name};
  if (product.state) list.push_back(std::to_wstring(*product.state));
  if (product.state && product.signatures_up_to_date) list.push_back(std::to_wstring(*product.signatures_up_to_date));
  registry::WriteList(kProducts, interface_name.c_str(), list);
}

void RemoveProduct(const std::wstring& interface_name) { registry::DeleteValue(kProducts, interface_name.c_str()); }

const ScriptedCalls& SecurityCenterCalls() {
  static const ScriptedCalls calls = [] {
    std::vector<ScriptedCalls::Call> all;
    for (const wchar_t* const interface_name : kProductInterfaces) {
      for (const wchar_t* const call : kProductCalls) {
        all.push_back({std::wstring(interface_name) + L"." + call, call == kProductCalls[0]});
      }
    }
    return ScriptedCalls(kSecurityCenterKey, kSecurityCenterLock, std::move(all));
  }();
  return calls;
}

void ClearSecurityCenter() {
  const NamedLock lock(kSecurityCenterLock);
  registry::DeleteKey(kSecurityCenterKey);
}

}  // namespace crv::standins
