#include "wsc/defender.h"

#include <windows.h>
#include <winsvc.h>

#include <string>

#include "base/exceptions.h"
#include "base/log.h"
#include "root/os_version.h"
#include "root/registry.h"
#include "root/service_control.h"
#include "wsc/product.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

constexpr wchar_t kServiceName[] = L"WinDefend";
constexpr std::uint32_t kDoNotWait = 0;

constexpr wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Microsoft\\Windows Defender";
constexpr wchar_t kPolicyValue[] = L"DisableAntiSpyware";
constexpr std::uint32_t kDisabledByPolicy = 1;

// Under the module's key; only ever read.
constexpr wchar_t kOptOutValue[] = L"IReallyWantDefenderOnAndDecreasedPerformanceOnLegacySystems";
constexpr std::uint32_t kOptOut = 42;

bool OptedOut() {
  std::uint32_t value = 0;
  return root::QueryDword(kModuleKey, kOptOutValue, value, 0) && value == kOptOut;
}

// Whether there is no policy key any more; otherwise the last error says why. One that cannot be opened still is there.
bool DeletePolicy() {
  if (root::KeyExists(kPolicyKey, 0)) return root::DeleteKeyTree(HKEY_LOCAL_MACHINE, kPolicyKey, 0);
  return GetLastError() == ERROR_SUCCESS;
}

void SwitchOn() {
  log::Info(tag, "enabling windows defender");
  if (!DeletePolicy()) throw exceptions::error(GetLastError(), "registry delete");
  static_cast<void>(root::ControlServiceAndWait(kServiceName, SERVICE_START, root::kControlStart, SERVICE_START_PENDING,
                                                SERVICE_RUNNING, kDoNotWait));
  log::Info(tag, "windows defender operation succeeded");
}

void SwitchOff() {
  if (OptedOut()) return;
  log::Info(tag, "disabling windows defender");
  if (!root::SetDword(kPolicyKey, kPolicyValue, kDisabledByPolicy, 0)) {
    throw exceptions::error(GetLastError(), "registry write");
  }
  static_cast<void>(root::ControlServiceAndWait(kServiceName, SERVICE_STOP, SERVICE_CONTROL_STOP, SERVICE_STOP_PENDING,
                                                SERVICE_STOPPED, kDoNotWait));
  log::Info(tag, "windows defender operation succeeded");
}

// A log library that fails here as well must not reach the caller.
void LogFailure(const std::exception& failure) noexcept {
  try {
    log::LogExceptionAtLevel(log::LogLevel::error, tag, failure, "change_defender_status");
  } catch (const std::exception&) {
  }
}

// Only before Windows 8 do the suite's products replace it.
bool IsSwitchedHere() {
  const OSVERSIONINFOEXW& version = root::OsVersionRecord();
  return version.dwMajorVersion < 6 || (version.dwMajorVersion == 6 && version.dwMinorVersion < 2);
}

}  // namespace

void change_defender_status(bool enable) noexcept {
  if (!IsSwitchedHere()) return;
  try {
    enable ? SwitchOn() : SwitchOff();
  } catch (const std::exception& failure) {
    LogFailure(failure);
  }
}

}  // namespace crv::wsc
