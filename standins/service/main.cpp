// corvid_service.exe NAME: one service under the Service Control Manager that starts, runs and stops as it is told (see
// control.h). It does nothing else.
#include <windows.h>
#include <shellapi.h>
#include <winsvc.h>

#include <string>

#include "service/control.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr DWORD kLook = 20;  // ms between two looks at the behaviour while the service starts or stops

// Set before the service runs; then read by its own thread and by the control handler.
std::wstring service_name;
SERVICE_STATUS_HANDLE status_handle = nullptr;
HANDLE stop_requested = nullptr;

void Report(DWORD state, DWORD accepted = 0, DWORD exit_code = NO_ERROR) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = accepted;
  status.dwWin32ExitCode = exit_code;
  SetServiceStatus(status_handle, &status);
}

void ReportRunning() { Report(SERVICE_RUNNING, ReadServiceBehaviour(service_name).refuse_stop ? 0 : SERVICE_ACCEPT_STOP); }

DWORD WINAPI Handle(DWORD control, DWORD, void*, void*) {
  switch (control) {
    case SERVICE_CONTROL_STOP:
      Report(SERVICE_STOP_PENDING);
      SetEvent(stop_requested);
      return NO_ERROR;
    case kControlLookAgain:
      if (WaitForSingleObject(stop_requested, 0) == WAIT_TIMEOUT) ReportRunning();
      return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE: return NO_ERROR;
    default: return ERROR_CALL_NOT_IMPLEMENTED;
  }
}

void WINAPI Serve(DWORD, wchar_t**) {
  status_handle = RegisterServiceCtrlHandlerExW(service_name.c_str(), &Handle, nullptr);
  Report(SERVICE_START_PENDING);
  // The behaviour is read anew again and again, so that a person can let a hanging service go.
  const DWORD begin = GetTickCount();
  for (;; Sleep(kLook)) {
    const ServiceBehaviour behaviour = ReadServiceBehaviour(service_name);
    if (behaviour.start == kStartRefuse) return Report(SERVICE_STOPPED, 0, behaviour.start_error);
    if (behaviour.start == kStartHang) continue;
    if (behaviour.start == kStartSlow && GetTickCount() - begin < behaviour.start_delay) continue;
    break;
  }
  ReportRunning();
  WaitForSingleObject(stop_requested, INFINITE);
  for (const DWORD stopped = GetTickCount(); GetTickCount() - stopped < ReadServiceBehaviour(service_name).stop_delay;)
    Sleep(kLook);
  Report(SERVICE_STOPPED);
}

int Run(const wchar_t* name) {
  service_name = name;
  if (ReadServiceBehaviour(service_name).start == kStartDie) return ERROR_PROCESS_ABORTED;
  const root::ScopedKernelHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  stop_requested = stop.get();
  const SERVICE_TABLE_ENTRYW services[] = {{service_name.data(), &Serve}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(services) ? 0 : static_cast<int>(GetLastError());
}

}  // namespace
}  // namespace crv::standins

int main() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  return count == 2 ? crv::standins::Run(words[1]) : ERROR_BAD_ARGUMENTS;
}
