#include "wsc/watcher.h"

#include <algorithm>

#include "base/exceptions.h"
#include "root/proc_address.h"

namespace crv::wsc {
namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kTicksPerMillisecond = 10'000;
constexpr std::int64_t kLongestSleep = 0x7FFFFFFF;  // ms; the worker looks at the clock again after it

// Held by a worker while it gives up a watcher's mutex for the last time. The owner may destroy the watcher as soon as it has
// seen that there is no worker, and unlocking may still look into the mutex after it has let the owner in; passing through this
// one, which is never destroyed, makes sure that the worker is out.
std::mutex leaving;

// System time in 100-ns ticks.
std::int64_t Now() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

// A worker is detached, and after it has given up the watcher nobody knows of it any more while it runs the last instructions of
// this library and of the runtime linked into it. A host that unloads the library then would take the code away under it, so the
// first worker makes the library stay until the process ends.
void KeepThisLibraryLoaded() {
  HMODULE module;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<const wchar_t*>(&KeepThisLibraryLoaded), &module);
}

}  // namespace

watcher::watcher(std::int64_t delay) : delay_(delay) {
  library_.reset(LoadLibraryW(L"wscapi.dll"));
  if (!library_) throw exceptions::error(GetLastError(), L"cannot load wscapi.dll");
  register_ = root::GetProcAddressOrThrow<RegisterFunction>(library_.get(), "WscRegisterForChanges");
  unregister_ = root::GetProcAddressOrThrow<UnregisterFunction>(library_.get(), "WscUnRegisterChanges");
  const HRESULT result = register_(nullptr, &registration_, &on_security_center_change, this);
  if (FAILED(result)) throw exceptions::error(result, "WscRegisterForChanges");
}

watcher::~watcher() { stop(); }

void watcher::changed() {}

void watcher::stop() {
  if (!unregister_) return;
  unregister_(registration_);  // when it returns, the library makes no further call
  std::unique_lock lock(mutex_);
  while (worker_) {
    lock.unlock();
    std::this_thread::yield();
    lock.lock();
  }
  lock.unlock();
  const std::lock_guard worker_is_out(leaving);
  unregister_ = nullptr;
}

// A runtime that cannot lock or start the thread throws std::system_error through the library that called.
DWORD WINAPI watcher::on_security_center_change(void* context) {
  static_cast<watcher*>(context)->notify();
  return 0;
}

void watcher::notify() {
  const std::lock_guard lock(mutex_);
  deadline_ = Now() + delay_ * kTicksPerSecond;
  if (worker_) return;
  KeepThisLibraryLoaded();
  worker_ = std::make_unique<std::thread>(&watcher::worker, this);
}

void watcher::worker() {
  std::unique_lock lock(mutex_);
  for (std::int64_t now = Now(); now < deadline_; now = Now()) {
    // Rounded up, so that the sleep does not end just before the deadline.
    const std::int64_t sleep = (deadline_ - now + kTicksPerMillisecond - 1) / kTicksPerMillisecond;
    lock.unlock();
    Sleep(static_cast<DWORD>(std::min(sleep, kLongestSleep)));
    lock.lock();
  }
  changed();
  worker_->detach();
  worker_.reset();
  const std::lock_guard out(leaving);
  lock.unlock();
}

}  // namespace crv::wsc
