// Registers the library as the server of WMI's locator class in place of the system's own, and puts that one back.
#include <windows.h>
#include <olectl.h>

#include <string>

#include "base/exceptions.h"
#include "shared/own_path.h"
#include "shared/registry.h"

namespace {

constexpr wchar_t kServerKey[] = L"SOFTWARE\\Classes\\CLSID\\{4590F811-1D3A-11D0-891F-00AA004B2E24}\\InprocServer32";
constexpr wchar_t kSystemServer[] = L"Corvid system server";  // what was registered before; it stays beside what replaced it
constexpr wchar_t kThreadingModel[] = L"ThreadingModel";

}  // namespace

STDAPI DllRegisterServer() {
  namespace registry = crv::standins::registry;
  try {
    if (!registry::ReadText(kServerKey, kSystemServer)) {
      registry::WriteText(kServerKey, kSystemServer, registry::ReadText(kServerKey, L"").value_or(L""));
    }
    registry::WriteText(kServerKey, L"", crv::standins::OwnPath());
    registry::WriteText(kServerKey, kThreadingModel, L"Both");
    return S_OK;
  } catch (const crv::exceptions::error&) {
    return SELFREG_E_CLASS;
  }
}

STDAPI DllUnregisterServer() {
  namespace registry = crv::standins::registry;
  try {
    const std::optional<std::wstring> system_server = registry::ReadText(kServerKey, kSystemServer);
    if (!system_server) return S_OK;
    registry::WriteText(kServerKey, L"", *system_server);
    registry::DeleteValue(kServerKey, kSystemServer);
    return S_OK;
  } catch (const crv::exceptions::error&) {
    return SELFREG_E_CLASS;
  }
}
