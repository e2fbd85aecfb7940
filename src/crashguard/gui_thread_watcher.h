// How a thread that watches the host's GUI thread is stopped. This library has no such thread: the crash guard makes a controller
// without one, and stopping that does nothing. A watcher derives from the controller, starts `thread_`, which keeps a shared pointer
// to the controller, and lets it wait for `wake_up_` until `stop_requested_`. Stopping is for one thread; a controller whose
// thread is still joinable must not be destroyed.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace crv::crashguard::detail {

class GuiThreadWatcherController : public std::enable_shared_from_this<GuiThreadWatcherController> {
 public:
  // Ask the thread to end and wait for it, or let it go. Without a thread they do nothing. StopAndJoin on the watcher thread
  // itself throws std::system_error (resource_deadlock_would_occur).
  void StopAndJoin();
  void StopAndDetach();

 protected:
  bool stop_requested_ = false;  // under mutex_
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable wake_up_;

 private:
  bool RequestStop();  // false: there is no thread
};

}  // namespace crv::crashguard::detail
