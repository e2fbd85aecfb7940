// Makes sure that Windows Security Center's service, wscsvc, runs before its COM class is used. That it stays down is no failure
// here: the COM call that follows reports the real one. Blocks the calling thread: up to 60 hours while a started service comes
// up, and for a disabled one until it runs or an hour has passed without a change in Security Center.
#pragma once

#include <cstdint>

#include "root/scoped_handle.h"
#include "wsc/watcher.h"

namespace crv::wsc::sc {

// Returns at once and silently when the service runs; starts a stopped one; waits for somebody else to start a disabled one.
// Throws `crv::exceptions::error`: as QueryServiceState and ControlServiceAndWait do (root/service_control.h), with the last
// error and "cannot get wscsvc status" when the start type cannot be read, or as the class below does.
void ensure_running();

namespace detail {

// Made before the watcher and gone after it: the first change may be reported while the watcher still registers.
struct ChangeEvent {
  ChangeEvent();                         // throws with the last error and "cannot create event"
  const root::ScopedKernelHandle event;  // unnamed, auto-reset
};

}  // namespace detail

// The wait for a disabled service: looks at it again whenever Security Center reports a change. Used by one thread, on whose
// stack it lives; only the event is shared with the watcher's worker.
class wscsvc : private detail::ChangeEvent, private watcher {
 public:
  // Throws as the event above and the watcher do.
  wscsvc();

  // Stops the watcher first, as a subclass has to.
  ~wscsvc() override;

  // Waits until the service runs; `seconds` (at most 4,294,967) without a change end the wait, which is no failure. Throws as
  // QueryServiceState does, or with the last error and "event wait error". Logs the outcome.
  void wait(std::int64_t seconds);

  // Whether the service ran when it was last looked at.
  [[nodiscard]] bool started() const { return started_; }

 private:
  void changed() override;

  bool started_ = false;
};

}  // namespace crv::wsc::sc
