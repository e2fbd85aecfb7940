#include "service/control.h"

#include "base/exceptions.h"
#include "shared/registry.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr wchar_t kStart[] = L"Start";
constexpr wchar_t kStartDelay[] = L"StartDelay";
constexpr wchar_t kStartError[] = L"StartError";
constexpr wchar_t kRefuseStop[] = L"RefuseStop";
constexpr wchar_t kStopDelay[] = L"StopDelay";
constexpr DWORD kLook = 20;       // ms between two looks at a state
constexpr DWORD kLimit = 10'000;  // ms

std::wstring KeyOf(const std::wstring& name) { return std::wstring(kServicesKey) + L"\\" + name; }

[[noreturn]] void Fail(const wchar_t* step, const std::wstring& name) {
  const DWORD error = GetLastError();
  throw exceptions::error(error, L"cannot %s the service %s", step, name.c_str());
}

root::ScopedService OpenManager() {
  root::ScopedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
  if (!manager) throw exceptions::error(GetLastError(), "cannot open the service manager");
  return manager;
}

// Empty when there is no such service.
root::ScopedService Find(const std::wstring& name, DWORD access) {
  const root::ScopedService manager = OpenManager();
  root::ScopedService service(OpenServiceW(manager.get(), name.c_str(), access));
  if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) Fail(L"open", name);
  return service;
}

root::ScopedService Open(const std::wstring& name, DWORD access) {
  root::ScopedService service = Find(name, access);
  if (!service) Fail(L"open", name);
  return service;
}

// The state; SERVICE_STOPPED also for a service whose program died without a word, whatever it had said before.
DWORD StateOf(SC_HANDLE service, const std::wstring& name) {
  SERVICE_STATUS_PROCESS status = {};
  DWORD needed = 0;
  if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &needed)) {
    Fail(L"query", name);
  }
  if (status.dwServiceType != SERVICE_WIN32_OWN_PROCESS || status.dwCurrentState == SERVICE_STOPPED) return status.dwCurrentState;
  const root::ScopedKernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, status.dwProcessId));
  const bool lives = process && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
  return lives ? status.dwCurrentState : SERVICE_STOPPED;
}

bool WaitFor(SC_HANDLE service, const std::wstring& name, DWORD state, DWORD limit) {
  for (const DWORD begin = GetTickCount();;) {
    if (StateOf(service, name) == state) return true;
    if (GetTickCount() - begin >= limit) return false;
    Sleep(kLook);
  }
}

void Start(SC_HANDLE service, const std::wstring& name) {
  if (!StartServiceW(service, 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) Fail(L"start", name);
}

void Stop(SC_HANDLE service, const std::wstring& name) {
  SERVICE_STATUS status = {};
  if (!ControlService(service, SERVICE_CONTROL_STOP, &status) && GetLastError() != ERROR_SERVICE_NOT_ACTIVE) Fail(L"stop", name);
}

// Creates the service; one that exists gets the image and start type.
void Install(const std::wstring& name, DWORD type, const std::wstring& image, DWORD start_type) {
  const root::ScopedService existing = Find(name, SERVICE_CHANGE_CONFIG);
  if (existing) {
    if (!ChangeServiceConfigW(existing.get(), SERVICE_NO_CHANGE, start_type, SERVICE_NO_CHANGE, image.c_str(), nullptr, nullptr,
                              nullptr, nullptr, nullptr, nullptr)) {
      Fail(L"change", name);
    }
    return;
  }
  const root::ScopedService manager = OpenManager();
  const root::ScopedService created(CreateServiceW(manager.get(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, type,
                                                   start_type, SERVICE_ERROR_NORMAL, image.c_str(), nullptr, nullptr, nullptr,
                                                   nullptr, nullptr));
  if (!created) Fail(L"create", name);
}

// From any state to stopped.
void StopForSure(SC_HANDLE service, const std::wstring& name) {
  Behave(name, {});
  if (StateOf(service, name) == SERVICE_RUNNING) Stop(service, name);
  if (!WaitFor(service, name, SERVICE_STOPPED, kLimit)) throw exceptions::error(ERROR_TIMEOUT, L"%s does not stop", name.c_str());
}

}  // namespace

ServiceBehaviour ReadServiceBehaviour(const std::wstring& name) {
  const std::wstring key = KeyOf(name);
  ServiceBehaviour behaviour;
  behaviour.start = registry::ReadText(key, kStart).value_or(kStartNormal);
  behaviour.start_delay = registry::ReadNumber(key, kStartDelay).value_or(0);
  behaviour.start_error = registry::ReadNumber(key, kStartError).value_or(0);
  behaviour.refuse_stop = registry::ReadNumber(key, kRefuseStop) == 1u;
  behaviour.stop_delay = registry::ReadNumber(key, kStopDelay).value_or(0);
  return behaviour;
}

void Behave(const std::wstring& name, const ServiceBehaviour& behaviour) {
  const std::wstring key = KeyOf(name);
  registry::DeleteKey(key);
  if (behaviour.refuse_stop) registry::WriteNumber(key, kRefuseStop, 1);
  if (behaviour.start_delay) registry::WriteNumber(key, kStartDelay, behaviour.start_delay);
  if (behaviour.start_error) registry::WriteNumber(key, kStartError, behaviour.start_error);
  if (behaviour.stop_delay) registry::WriteNumber(key, kStopDelay, behaviour.stop_delay);
  // The way of starting last: its numbers have to be there when it is seen.
  if (behaviour.start != kStartNormal) registry::WriteText(key, kStart, behaviour.start);

  const root::ScopedService service = Find(name, SERVICE_QUERY_STATUS | SERVICE_USER_DEFINED_CONTROL);
  if (!service) return;
  if (behaviour.start == kStartNormal) {
    // One that waited in start-pending runs within a moment.
    for (DWORD waited = 0; waited < kLimit && StateOf(service.get(), name) == SERVICE_START_PENDING; waited += kLook)
      Sleep(kLook);
  }
  SERVICE_STATUS status = {};
  if (StateOf(service.get(), name) == SERVICE_RUNNING) ControlService(service.get(), kControlLookAgain, &status);
}

std::optional<ServiceStatus> FindService(const std::wstring& name) {
  const root::ScopedService service = Find(name, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
  if (!service) return std::nullopt;
  SERVICE_STATUS status = {};
  if (!QueryServiceStatus(service.get(), &status)) Fail(L"query", name);
  alignas(QUERY_SERVICE_CONFIGW) BYTE buffer[8192];  // the system's own limit
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  DWORD needed = 0;
  if (!QueryServiceConfigW(service.get(), config, sizeof(buffer), &needed)) Fail(L"query", name);
  return ServiceStatus{status.dwCurrentState, config->dwStartType, status.dwWin32ExitCode, config->lpBinaryPathName};
}

void InstallService(const std::wstring& name, const std::wstring& program, DWORD start_type) {
  Install(name, SERVICE_WIN32_OWN_PROCESS, L"\"" + program + L"\" " + name, start_type);
}

void InstallDriver(const std::wstring& name, const std::wstring& file) {
  Install(name, SERVICE_KERNEL_DRIVER, file, SERVICE_AUTO_START);
}

void RemoveService(const std::wstring& name) {
  {
    const root::ScopedService service = Find(name, SERVICE_ALL_ACCESS);
    if (!service) return;
    StopForSure(service.get(), name);
    if (!DeleteService(service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) Fail(L"delete", name);
  }
  // The manager drops a service when the last handle to it is closed and its program has ended.
  for (DWORD waited = 0; waited < kLimit; waited += kLook) {
    if (!FindService(name)) return;
    Sleep(kLook);
  }
  throw exceptions::error(ERROR_SERVICE_MARKED_FOR_DELETE, L"the service %s does not go away", name.c_str());
}

void SetStartType(const std::wstring& name, DWORD start_type) {
  const root::ScopedService service = Open(name, SERVICE_CHANGE_CONFIG);
  if (!ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, start_type, SERVICE_NO_CHANGE, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr)) {
    Fail(L"change", name);
  }
}

void RequestStart(const std::wstring& name) { Start(Open(name, SERVICE_START).get(), name); }

void RequestStop(const std::wstring& name) { Stop(Open(name, SERVICE_STOP).get(), name); }

void StopForSure(const std::wstring& name) { StopForSure(Open(name, SERVICE_ALL_ACCESS).get(), name); }

bool WaitForState(const std::wstring& name, DWORD state, DWORD limit) {
  return WaitFor(Open(name, SERVICE_QUERY_STATUS).get(), name, state, limit);
}

void MakeServiceHealthy(const std::wstring& name) {
  SetStartType(name, SERVICE_AUTO_START);
  const root::ScopedService service = Open(name, SERVICE_ALL_ACCESS);
  Behave(name, {});
  if (StateOf(service.get(), name) == SERVICE_RUNNING) return;
  StopForSure(service.get(), name);
  Start(service.get(), name);
  if (!WaitFor(service.get(), name, SERVICE_RUNNING, kLimit))
    throw exceptions::error(ERROR_TIMEOUT, L"%s does not run", name.c_str());
}

}  // namespace crv::standins
