// Security Center's product class: who is registered, how it answers, what it was asked.
#include <windows.h>

#include "base/exceptions.h"
#include "centre/area.h"
#include "centre/console.h"
#include "centre/places.h"
#include "control/security_center_control.h"
#include "root/scoped_handle.h"

namespace crv::standins::centre {
namespace {

void CallServer(const char* function) {
  const std::wstring path = Beside(L"security_center.dll");
  const root::ScopedModule library(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!library) throw exceptions::error(GetLastError(), L"cannot load %s", path.c_str());
  const auto call = reinterpret_cast<HRESULT(__stdcall*)()>(reinterpret_cast<void*>(GetProcAddress(library.get(), function)));
  if (!call) throw exceptions::error(GetLastError(), "%ls has no %s", path.c_str(), function);
  const HRESULT result = call();
  if (FAILED(result)) throw exceptions::error(result, "%s", function);
}

void Install() {
  CallServer("DllRegisterServer");
  PrintLine(L"Security Center's product class is registered");
}

void Uninstall() {
  CallServer("DllUnregisterServer");
  PrintLine(L"Security Center's product class is taken back");
}

// The word for a number that may be missing; a number without a word shows itself.
std::wstring WordFor(const std::optional<DWORD>& number, const std::vector<std::wstring>& words) {
  if (!number) return kNothing;
  return *number < words.size() ? words[*number] : std::to_wstring(*number);
}

void Show() {
  static constexpr struct {
    const wchar_t* interface_name;
    const wchar_t* kind;
  } kKinds[] = {{kAntiVirus, L"anti-virus"}, {kAntiSpyware, L"anti-spyware"}, {kFirewall, L"firewall"}};
  std::vector<Words> rows = {{L"Product", L"Registered as", L"State", L"Signatures", L"Path"}};
  for (const auto& kind : kKinds) {
    if (const std::optional<Product> product = ReadProduct(kind.interface_name)) {
      rows.push_back({kind.kind, product->name, WordFor(product->state, {L"on", L"off", L"snoozed", L"expired"}),
                      WordFor(product->signatures_up_to_date, {L"out of date", L"up to date"}), product->path});
    } else {
      rows.push_back({kind.kind, L"(not registered)", kNothing, kNothing, kNothing});
    }
  }
  PrintTable(rows);
}

}  // namespace

const Area& SecurityCenterArea() {
  static const Area area = {
      .calls = &SecurityCenterCalls(),
      .install = &Install,
      .uninstall = &Uninstall,
      .show = &Show,
      .show_after_run = true,
      .clear = &ClearSecurityCenter,
  };
  return area;
}

}  // namespace crv::standins::centre
