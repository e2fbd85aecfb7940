// Registers the library as the server of Security Center's product class, and takes that back.
#include <windows.h>
#include <olectl.h>

#include <string>

#include "base/exceptions.h"
#include "shared/own_path.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{F2102C37-90C3-450C-B3F6-92BE1693BDF2}";

}  // namespace
}  // namespace crv::standins

STDAPI DllRegisterServer() {
  namespace registry = crv::standins::registry;
  const std::wstring server = std::wstring(crv::standins::kClassKey) + L"\\InprocServer32";
  try {
    registry::WriteText(crv::standins::kClassKey, L"", L"Corvid stand-in for Security Center's product class");
    registry::WriteText(server, L"", crv::standins::OwnPath());
    registry::WriteText(server, L"ThreadingModel", L"Both");
    return S_OK;
  } catch (const crv::exceptions::error&) {
    return SELFREG_E_CLASS;
  }
}

STDAPI DllUnregisterServer() {
  try {
    crv::standins::registry::DeleteKey(crv::standins::kClassKey);
    return S_OK;
  } catch (const crv::exceptions::error&) {
    return SELFREG_E_CLASS;
  }
}
