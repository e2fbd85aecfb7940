// The registry and COM calls of "/svc /update /firewall /state:on" on a registered firewall, and nothing else.
#include <windows.h>

#include "wsc/iwsc_product.h"

int main() {
  HKEY key = nullptr;
  wchar_t name[64];
  DWORD size = sizeof(name);
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\CORVID Software\\Corvid\\Wsc", 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS) {
    RegQueryValueExW(key, L"IWscFWStatus", nullptr, nullptr, reinterpret_cast<BYTE*>(name), &size);
    RegCloseKey(key);
  }
  HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (FAILED(result)) return result;
  IWscFWStatus* firewall = nullptr;
  result = CoCreateInstance(CLSID_WscIsv, nullptr, CLSCTX_INPROC_SERVER, IID_IWscFWStatus, reinterpret_cast<void**>(&firewall));
  if (SUCCEEDED(result)) {
    result = firewall->UpdateStatus(crv::wsc::ProductState::on);
    firewall->Release();
  }
  CoUninitialize();
  return FAILED(result) ? result : 0;
}
