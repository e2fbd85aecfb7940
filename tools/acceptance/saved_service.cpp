#include "acceptance/saved_service.h"

#include <winsvc.h>

#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "service/control.h"

namespace crv::acceptance {
namespace {

constexpr DWORD kLargestConfiguration = 8192;  // bytes, the system's own limit
constexpr DWORD kLongestChange = 20'000;       // ms
constexpr DWORD kLook = 50;                    // ms

[[noreturn]] void Fail(const wchar_t* step, const std::wstring& name) {
  const DWORD error = GetLastError();
  throw exceptions::error(error, L"cannot %s the service %s", step, name.c_str());
}

// Empty when there is no such service.
root::ScopedService Open(const std::wstring& name, DWORD access) {
  const root::ScopedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) Fail(L"ask the service manager for", name);
  root::ScopedService service(OpenServiceW(manager.get(), name.c_str(), access));
  if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) Fail(L"open", name);
  return service;
}

DWORD StateOf(const root::ScopedService& service) {
  SERVICE_STATUS status = {};
  return QueryServiceStatus(service.get(), &status) ? status.dwCurrentState : 0;
}

void Reach(const root::ScopedService& service, const std::wstring& name, DWORD state) {
  for (DWORD waited = 0; StateOf(service) != state; waited += kLook) {
    if (waited >= kLongestChange)
      throw exceptions::error(ERROR_TIMEOUT, L"the service %s does not change its state", name.c_str());
    Sleep(kLook);
  }
}

std::wstring Text(const wchar_t* text) { return text ? text : L""; }

}  // namespace

std::optional<SavedService> ReadService(const std::wstring& name) {
  const root::ScopedService service = Open(name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS);
  if (!service) return std::nullopt;
  alignas(QUERY_SERVICE_CONFIGW) BYTE buffer[kLargestConfiguration];
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  DWORD needed = 0;
  if (!QueryServiceConfigW(service.get(), configuration, sizeof(buffer), &needed)) Fail(L"read", name);
  return SavedService{configuration->dwServiceType,
                      configuration->dwStartType,
                      configuration->dwErrorControl,
                      Text(configuration->lpBinaryPathName),
                      Text(configuration->lpServiceStartName),
                      StateOf(service) == SERVICE_RUNNING};
}

void RestoreService(const std::wstring& name, const std::optional<SavedService>& saved) {
  if (ReadService(name) == saved) return;
  if (!saved) return standins::RemoveService(name);
  const root::ScopedService service =
      Open(name, SERVICE_CHANGE_CONFIG | SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP | SERVICE_USER_DEFINED_CONTROL);
  if (!service) throw exceptions::error(ERROR_SERVICE_DOES_NOT_EXIST, L"the service %s was deleted", name.c_str());
  standins::Behave(name, {});  // a stand-in that runs in its place stops when it is asked to
  SERVICE_STATUS status = {};
  if (StateOf(service) != SERVICE_STOPPED && ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
    Reach(service, name, SERVICE_STOPPED);
  }
  if (!ChangeServiceConfigW(service.get(), saved->type, saved->start, saved->error_control, saved->image.c_str(), nullptr,
                            nullptr, nullptr, nullptr, nullptr, nullptr)) {
    Fail(L"restore", name);
  }
  if (!saved->runs) return;
  if (!StartServiceW(service.get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) Fail(L"start", name);
  Reach(service, name, SERVICE_RUNNING);
}

}  // namespace crv::acceptance
