#include "crashguard/gui_thread_watcher.h"

#include <gtest/gtest.h>

#include <future>
#include <system_error>

namespace crv::crashguard::detail {
namespace {

// A host's watcher: waits to be stopped, then does `last`.
struct Watcher : GuiThreadWatcherController {
  void Start(std::function<void()> last) {
    thread_ = std::thread([self = std::static_pointer_cast<Watcher>(shared_from_this()), last] {
      {
        std::unique_lock lock(self->mutex_);
        self->wake_up_.wait(lock, [&] { return self->stop_requested_; });
      }
      last();
    });
  }
  bool has_thread() const { return thread_.joinable(); }
};

TEST(GuiThreadWatcher, StopWaitsForTheThreadOrLetsItGo) {
  const auto watcher = std::make_shared<Watcher>();
  std::error_code refused;
  watcher->Start([&] {
    try {
      watcher->StopAndJoin();
    } catch (const std::system_error& error) {
      refused = error.code();
    }
  });
  watcher->StopAndJoin();
  EXPECT_EQ(std::errc::resource_deadlock_would_occur, refused) << "it cannot wait for itself";
  watcher->StopAndJoin();  // nothing is left to stop
  watcher->StopAndDetach();

  std::promise<void> go, ended;
  watcher->Start([&] {
    go.get_future().wait();
    ended.set_value();
  });
  watcher->StopAndDetach();
  EXPECT_FALSE(watcher->has_thread());
  go.set_value();
  ended.get_future().wait();
}

}  // namespace
}  // namespace crv::crashguard::detail
