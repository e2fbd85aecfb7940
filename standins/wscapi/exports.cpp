// wscapi.dll: the two functions of Security Center's client library that tell a program about changes.
#include <windows.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "base/exceptions.h"
#include "wscapi/control.h"
#include "wscapi/registration.h"

namespace crv::standins {
namespace {

constexpr HRESULT kInvalidHandle = HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
constexpr HRESULT kWouldDeadlock = HRESULT_FROM_WIN32(ERROR_POSSIBLE_DEADLOCK);

std::mutex mutex;
std::vector<std::unique_ptr<ChangeRegistration>> registrations;  // under the mutex

// Takes the registration of that handle out of the list; null when there is none.
std::unique_ptr<ChangeRegistration> Take(HANDLE handle) {
  const std::lock_guard lock(mutex);
  const auto found = std::find_if(registrations.begin(), registrations.end(),
                                  [&](const auto& registration) { return registration.get() == handle; });
  if (found == registrations.end()) return nullptr;
  std::unique_ptr<ChangeRegistration> taken = std::move(*found);
  registrations.erase(found);
  return taken;
}

// The list stays with the library to the end of the process: a registration that nobody took back must not be waited for there.
struct LeaveAlone {
  ~LeaveAlone() {
    for (auto& registration : registrations) registration.release();
  }
} leave_alone;

}  // namespace
}  // namespace crv::standins

extern "C" HRESULT WINAPI WscRegisterForChanges(void* reserved, HANDLE* handle, LPTHREAD_START_ROUTINE callback, void* context) {
  using namespace crv::standins;
  const bool valid = !reserved && handle && callback;
  return ChangesCalls().Answered(kRegisterForChanges, L"", valid ? S_OK : E_INVALIDARG, [&](const Answer&) {
    auto registration = std::make_unique<ChangeRegistration>(callback, context);
    const std::lock_guard lock(mutex);
    *handle = registration.get();
    registrations.push_back(std::move(registration));
    return S_OK;
  });
}

extern "C" HRESULT WINAPI WscUnRegisterChanges(HANDLE handle) {
  using namespace crv::standins;
  HRESULT refusal = kInvalidHandle;
  if (std::unique_ptr<ChangeRegistration> registration = Take(handle)) {
    if (registration->runs_on_this_thread()) {
      // It cannot wait for itself: it stays registered.
      const std::lock_guard lock(mutex);
      registrations.push_back(std::move(registration));
      refusal = kWouldDeadlock;
    } else {
      registration.reset();  // waits; the callback may need what the journal's lock protects
      refusal = S_OK;
    }
  }
  return ChangesCalls().Answered(kUnRegisterChanges, L"", refusal, [](const Answer&) { return S_OK; });
}
