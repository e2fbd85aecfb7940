#include "wsc/security_center_service.h"

#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "root/registry.h"
#include "root/service_control.h"

namespace crv::wsc::sc {
namespace {

const log::Tag tag("wsc");

const std::wstring kServiceName(L"wscsvc");
constexpr wchar_t kServicesKey[] = L"System\\CurrentControlSet\\Services\\";

constexpr std::uint32_t kStartLimit = 60 * 60 * 60 * 1000;  // ms: 60 hours
constexpr std::int64_t kQuietLimit = 3600;                  // s without a change that end the wait for a disabled service
constexpr std::int64_t kSettleDelay = 0;                    // s
constexpr std::int64_t kMillisecondsPerSecond = 1000;

bool IsRunning() { return root::QueryServiceState(kServiceName) == SERVICE_RUNNING; }

std::uint32_t StartType() {
  const std::wstring key = kServicesKey + kServiceName;
  std::uint32_t type = 0;
  if (!root::QueryDword(key.c_str(), L"Start", type, 0)) throw exceptions::error(GetLastError(), "cannot get wscsvc status");
  return type;
}

void Start() {
  log::Debug(tag, "wscsvc is not running, starting now");
  if (root::ControlServiceAndWait(kServiceName, SERVICE_START, root::kControlStart, SERVICE_START_PENDING, SERVICE_RUNNING,
                                  kStartLimit)) {
    log::Info(tag, "wsc service started successfully");
  } else {
    log::Critical(tag, "cannot start wsc service");
  }
}

}  // namespace

void ensure_running() {
  if (IsRunning()) return;
  const std::uint32_t start_type = StartType();
  log::Debug(tag, "wscsvc state %d", static_cast<int>(start_type));
  if (start_type != SERVICE_DISABLED) {
    Start();
  } else {
    wscsvc service;
    service.wait(kQuietLimit);
  }
}

detail::ChangeEvent::ChangeEvent() : event(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
  if (!event) throw exceptions::error(GetLastError(), "cannot create event");
}

wscsvc::wscsvc() : watcher(kSettleDelay) {}

wscsvc::~wscsvc() { stop(); }

void wscsvc::changed() { SetEvent(event.get()); }

void wscsvc::wait(std::int64_t seconds) {
  started_ = IsRunning();
  while (!started_) {
    const DWORD result = WaitForSingleObject(event.get(), static_cast<DWORD>(seconds * kMillisecondsPerSecond));
    if (result == WAIT_TIMEOUT) {
      log::Warning(tag, "waiting for wsc timeouted");
      break;
    }
    if (result != WAIT_OBJECT_0) throw exceptions::error(GetLastError(), "event wait error");
    started_ = IsRunning();
  }
  log::Info(tag, "service state at the end of wait is %s", started_ ? "started" : "not started");
}

}  // namespace crv::wsc::sc
