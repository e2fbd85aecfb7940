#include "crashguard/gui_thread_watcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <system_error>

namespace crv::crashguard::detail {
namespace {

// A host's watcher: waits to be stopped, then does `last`.
class Watcher : public GuiThreadWatcherController {
 public:
  void Start(std::function<void()> last) {
    thread_ = std::thread([self = std::static_pointer_cast<Watcher>(shared_from_this()), last] {
      {
        std::unique_lock lock(self->mutex_);
        self->wake_up_.wait(lock, [&] { return self->stop_requested_; });
      }
      last();
      self->ended_ = true;
    });
  }
  bool has_thread() const { return thread_.joinable(); }
  bool ended() const { return ended_; }

 private:
  std::atomic<bool> ended_ = false;
};

TEST(GuiThreadWatcher, StopWaitsForTheThreadOrLetsItGo) {
  const auto joined = std::make_shared<Watcher>();
  joined->Start([] {});
  joined->StopAndJoin();
  EXPECT_TRUE(joined->ended());
  EXPECT_FALSE(joined->has_thread());
  joined->StopAndJoin();  // nothing is left to stop
  joined->StopAndDetach();

  auto detached = std::make_shared<Watcher>();
  std::atomic<bool> go = false;
  detached->Start([&] {
    while (!go) std::this_thread::yield();  // a wait for an atomic can miss its wake-up: the compiler's runtime has no futex here
  });
  detached->StopAndDetach();
  EXPECT_FALSE(detached->has_thread());
  EXPECT_FALSE(detached->ended());
  go = true;
  while (!detached->ended()) std::this_thread::yield();
}

TEST(GuiThreadWatcher, CannotWaitForItself) {
  const auto watcher = std::make_shared<Watcher>();
  std::error_code code;
  watcher->Start([&] {
    try {
      watcher->StopAndJoin();
    } catch (const std::system_error& error) {
      code = error.code();
    }
  });
  watcher->StopAndJoin();
  EXPECT_EQ(std::errc::resource_deadlock_would_occur, code);
}

}  // namespace
}  // namespace crv::crashguard::detail
