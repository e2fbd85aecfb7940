// Makes sure that Windows Security Center's service, wscsvc, runs before its COM class is used. That it stays down is no failure
// here: the COM call that follows reports the real one. Blocks the calling thread: up to 60 hours while a started service comes
// up, and for a disabled one until it runs or an hour has passed without a change in Security Center.
#pragma once

#include <cstdint>

#include "root/scoped_handle.h"
#include "wsc/watcher.h"

namespace crv::wsc::sc {

// Returns at once and silently when the service runs; starts a stopped one; waits for somebody else to start a disabled one.
// Throws `crv::exceptions::error`: as QueryServiceState and ControlServiceAndWait do (root/service_control.h), with the last error
// and "cannot get wscsvc status" when the start type cannot be read, or as the class below does.
void ensure_running();

// The wait for a disabled service: looks at it again whenever Security Center reports a change. Used by one thread, on whose
// stack it lives; only the event is shared with the watcher's worker.
class wscsvc : private watcher {
 public:
  // Throws as the watcher does, or with the last error and "cannot create event".
  wscsvc();

  // Stops the watcher before the event is closed, so that no worker signals a closed event.
  ~wscsvc() override;

  // Waits until the service runs; `seconds` (at most 4,294,967) without a change end the wait, which is no failure. Throws as
  // QueryServiceState does, or with the last error and "event wait error". Logs the outcome.
  void wait(std::int64_t seconds);

  // Whether the service ran when it was last looked at.
  bool started() const { return started_; }

 private:
  void changed() override;

  bool started_ = false;
  // Unnamed, auto-reset. Null until the watcher is registered: a change before that signals nothing and is lost, and `wait` looks
  // at the service before it waits.
  root::ScopedKernelHandle event_;
};

}  // namespace crv::wsc::sc
