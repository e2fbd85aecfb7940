#include "root/service_control.h"

#include <windows.h>
#include <winsvc.h>

#include <limits>

#include "base/exceptions.h"
#include "root/registry.h"
#include "root/scoped_handle.h"

namespace crv::root {
namespace {

constexpr std::uint32_t kPollInterval = 100;  // ms
constexpr std::uint32_t kLongestWait =
    std::numeric_limits<std::uint32_t>::max() - kPollInterval;  // ms; one more interval would overflow

// A service that was opened, with the last status that it is known to have.
class Service {
 public:
  Service(const std::wstring& name, DWORD access)
      : name_(name), manager_(OpenSCManagerW(nullptr, SERVICES_ACTIVE_DATABASEW, SC_MANAGER_CONNECT)) {
    if (!manager_) Throw(L"Unable to open the service control manager!");
    service_.reset(OpenServiceW(manager_.get(), name.c_str(), access | SERVICE_QUERY_STATUS));
    if (!service_) Throw(L"Unable to open the service '%s'!");
    Query();
  }

  void Query() {
    if (!QueryServiceStatus(service_.get(), &status_)) Throw(L"Unable to query status of the service '%s'!");
  }

  void Start() {
    if (!StartServiceW(service_.get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
      Throw(L"Unable to start the service '%s'!");
    }
  }

  void Control(DWORD control) {
    if (!ControlService(service_.get(), control, &status_)) Throw(L"Unable to send control code to the service '%s'!");
  }

  DWORD state() const { return status_.dwCurrentState; }
  DWORD type() const { return status_.dwServiceType; }

 private:
  [[noreturn]] void Throw(const wchar_t* format) const { throw exceptions::error(GetLastError(), format, name_.c_str()); }

  const std::wstring& name_;
  const ScopedService manager_;
  ScopedService service_;
  SERVICE_STATUS status_ = {};
};

// Stands in for a service's missing registry key as long as it lives. A key that is there is the service's own, or another host's
// that asks the same: also one that cannot be opened, and one that appears between the question and the answer. Failures to write
// it show in the request that needs it.
class TemporaryServiceKey {
 public:
  TemporaryServiceKey(const std::wstring& name, DWORD service_type)
      : path_(L"SYSTEM\\CurrentControlSet\\Services\\" + name), created_(IsMissing() && Create()) {
    if (!created_) return;
    Set(L"ErrorControl", SERVICE_ERROR_NORMAL);
    Set(L"Start", SERVICE_DEMAND_START);
    Set(L"Type", service_type);
  }
  ~TemporaryServiceKey() {
    if (created_) static_cast<void>(DeleteKeyTree(HKEY_LOCAL_MACHINE, path_.c_str(), KEY_WOW64_32KEY));
  }
  TemporaryServiceKey(const TemporaryServiceKey&) = delete;
  TemporaryServiceKey& operator=(const TemporaryServiceKey&) = delete;

 private:
  bool IsMissing() const { return !KeyExists(path_.c_str(), KEY_WOW64_32KEY) && GetLastError() == ERROR_SUCCESS; }

  // Volatile: what a process that was killed meanwhile leaves behind is gone with the system's next start.
  // False when there is no key, and when it is somebody else's.
  bool Create() const {
    DWORD disposition = 0;
    const LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path_.c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                                           KEY_SET_VALUE | KEY_WOW64_32KEY, nullptr, ScopedRegistryKey().put(), &disposition);
    return result == ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY;
  }

  void Set(const wchar_t* value, DWORD number) { static_cast<void>(SetDword(path_.c_str(), value, number, KEY_WOW64_32KEY)); }

  const std::wstring path_;
  const bool created_;
};

void Request(Service& service, const std::wstring& name, std::uint32_t control, std::uint32_t skip_state,
             std::uint32_t target_state) {
  const TemporaryServiceKey key(name, service.type());
  if (service.state() == skip_state || service.state() == target_state) return;
  if (control == kControlStart) {
    service.Start();
  } else {
    service.Control(control);
  }
}

// The time is tested before the state.
bool WaitForState(Service& service, std::uint32_t target_state, std::uint32_t timeout_ms) {
  for (std::uint32_t elapsed = 0; elapsed < timeout_ms && elapsed < kLongestWait; elapsed += kPollInterval) {
    if (service.state() == target_state) return true;
    Sleep(kPollInterval);
    service.Query();
  }
  return false;
}

}  // namespace

std::uint32_t QueryServiceState(const std::wstring& name) { return Service(name, 0).state(); }

bool ControlServiceAndWait(const std::wstring& name, std::uint32_t extra_access, std::uint32_t control, std::uint32_t skip_state,
                           std::uint32_t target_state, std::uint32_t timeout_ms) {
  Service service(name, extra_access);
  Request(service, name, control, skip_state, target_state);
  return timeout_ms == 0 || WaitForState(service, target_state, timeout_ms);
}

}  // namespace crv::root
