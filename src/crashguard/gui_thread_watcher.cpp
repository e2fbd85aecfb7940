#include "crashguard/gui_thread_watcher.h"

namespace crv::crashguard::detail {

bool GuiThreadWatcherController::RequestStop() {
  if (thread_.get_id() == std::thread::id()) return false;
  {
    const std::lock_guard lock(mutex_);
    stop_requested_ = true;
  }
  wake_up_.notify_all();
  return true;
}

void GuiThreadWatcherController::StopAndJoin() {
  if (RequestStop()) thread_.join();
}

void GuiThreadWatcherController::StopAndDetach() {
  if (RequestStop()) thread_.detach();
}

}  // namespace crv::crashguard::detail
