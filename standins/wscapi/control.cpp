#include "wscapi/control.h"

#include "shared/registry.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins Changes";
constexpr wchar_t kRequest[] = L"Request";
constexpr wchar_t kCount[] = L"Count";
constexpr wchar_t kDuration[] = L"Duration";

}  // namespace

const ScriptedCalls& ChangesCalls() {
  static const ScriptedCalls calls(kChangesKey, kLock, {{kRegisterForChanges}, {kUnRegisterChanges}});
  return calls;
}

void RequestNotifications(DWORD count, DWORD duration) {
  const NamedLock lock(kLock);
  registry::WriteNumber(kChangesKey, kCount, count);
  registry::WriteNumber(kChangesKey, kDuration, duration);
  // Not counted on from the last one: after a clearing the same numbers would come again.
  LARGE_INTEGER now = {};
  QueryPerformanceCounter(&now);
  registry::WriteNumber(kChangesKey, kRequest, now.LowPart);
}

bool SomebodyListens() { return static_cast<bool>(root::ScopedKernelHandle(OpenEventW(SYNCHRONIZE, FALSE, kListenerEvent))); }

std::optional<NotificationRequest> LastNotificationRequest() {
  const NamedLock lock(kLock);
  const std::optional<DWORD> number = registry::ReadNumber(kChangesKey, kRequest);
  if (!number) return std::nullopt;
  return NotificationRequest{*number, registry::ReadNumber(kChangesKey, kCount).value_or(0),
                             registry::ReadNumber(kChangesKey, kDuration).value_or(0)};
}

void ClearChanges() {
  const NamedLock lock(kLock);
  registry::DeleteKey(kChangesKey);
}

}  // namespace crv::standins
