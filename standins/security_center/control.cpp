#include "security_center/control.h"

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

const std::wstring kProducts = std::wstring(kSecurityCenterKey) + L"\\Products\\";
constexpr wchar_t kPath[] = L"Path";
constexpr wchar_t kName[] = L"Name";
constexpr wchar_t kState[] = L"State";
constexpr wchar_t kSignatures[] = L"SignaturesUpToDate";

}  // namespace

std::optional<Product> ReadProduct(const std::wstring& interface_name) {
  const NamedLock lock(kSecurityCenterLock);
  const std::wstring key = kProducts + interface_name;
  if (!registry::KeyExists(key)) return std::nullopt;
  return Product{registry::ReadText(key, kPath).value_or(L""), registry::ReadText(key, kName).value_or(L""),
                 registry::ReadNumber(key, kState), registry::ReadNumber(key, kSignatures)};
}

void WriteProduct(const std::wstring& interface_name, const Product& product) {
  const NamedLock lock(kSecurityCenterLock);
  const std::wstring key = kProducts + interface_name;
  registry::DeleteKey(key);
  registry::WriteText(key, kPath, product.path);
  registry::WriteText(key, kName, product.name);
  if (product.state) registry::WriteNumber(key, kState, *product.state);
  if (product.signatures_up_to_date) registry::WriteNumber(key, kSignatures, *product.signatures_up_to_date);
}

void RemoveProduct(const std::wstring& interface_name) { registry::DeleteKey(kProducts + interface_name); }

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
