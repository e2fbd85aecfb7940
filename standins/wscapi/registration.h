// One registration for Security Center's changes: a thread of its own that looks for changes every 50 ms and calls back for each
// one it finds. No call is made once the registration is destroyed.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "wscapi/control.h"
#include "root/scoped_handle.h"

namespace crv::standins {

class ChangeRegistration {
 public:
  // Changes count from here on. Throws crv::exceptions::error when the system refuses a handle or the thread.
  ChangeRegistration(LPTHREAD_START_ROUTINE callback, void* context);

  // Waits for a callback that is running. Must not be called by the callback itself.
  ~ChangeRegistration();

  ChangeRegistration(const ChangeRegistration&) = delete;
  ChangeRegistration& operator=(const ChangeRegistration&) = delete;

  bool runs_on_this_thread() const { return GetCurrentThreadId() == thread_id_; }

 private:
  static DWORD WINAPI Run(void* self);
  void Watch();
  bool StopsWithin(DWORD ms) const;
  void CallBack(const NotificationRequest& request) const;

  const LPTHREAD_START_ROUTINE callback_;
  void* const context_;
  std::wstring state_;
  DWORD request_;
  root::ScopedKernelHandle listener_;  // tells other processes that somebody listens
  root::ScopedKernelHandle stop_;
  root::ScopedKernelHandle thread_;
  DWORD thread_id_ = 0;
};

}  // namespace crv::standins
