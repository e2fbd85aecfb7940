#include <gtest/gtest.h>

#include <boost/signals2/signal.hpp>
#include <memory>
#include <thread>
#include <vector>

#include "mi/event_connection.h"
#include "mi/module_base.h"
#include "mi/module_counts.h"

namespace crv::mi {
namespace {

class SomeModule : public Module<IModule> {
 public:
  std::uint32_t InterfaceVersion() const noexcept override { return kInterfaceVersion; }
};

void ExpectCounts(std::uint32_t modules, std::uint32_t exported_objects) {
  EXPECT_EQ(modules, LiveCounts().modules);
  EXPECT_EQ(exported_objects, LiveCounts().exported_objects);
}

// Each kind from construction to destruction; a half wraps around without touching the other.
TEST(ModuleCounts, EachKindCountsItself) {
  ExpectCounts(0, 0);
  {
    SomeModule first;
    const SomeModule second;
    const std::unique_ptr<IExportable> connection = std::make_unique<EventConnection>(boost::signals2::connection());
    ExpectCounts(2, 1);
    EXPECT_EQ(1u, connection->InterfaceVersion());
    for (int i = 0; i < 4; ++i) first.UnlockModule();
    ExpectCounts(static_cast<std::uint32_t>(-2), 1);
    for (int i = 0; i < 3; ++i) connection->UnlockModule();
    ExpectCounts(static_cast<std::uint32_t>(-2), static_cast<std::uint32_t>(-2));
    for (int i = 0; i < 4; ++i) first.LockModule();
    for (int i = 0; i < 3; ++i) connection->LockModule();
    ExpectCounts(2, 1);
  }
  ExpectCounts(0, 0);
}

TEST(EventConnection, EndsTheSubscriptionAtOnceOrWithItself) {
  boost::signals2::signal<void()> event;
  int calls = 0;
  EventConnection ended(event.connect([&] { ++calls; }));
  auto destroyed = std::make_unique<EventConnection>(event.connect([&] { ++calls; }));
  const EventConnection kept(event.connect([&] { ++calls; }));
  event();
  EXPECT_EQ(3, calls);
  ended.Disconnect();
  ended.Disconnect();
  destroyed.reset();
  event();
  EXPECT_EQ(4, calls);
}

TEST(EventConnection, ManyThreadsLeaveNothingBehind) {
  constexpr int kThreads = 4;
  constexpr int kConnections = 10'000;
  boost::signals2::signal<void()> event;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kConnections / kThreads; ++j) EventConnection(event.connect([] {}));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(event.empty());
  ExpectCounts(0, 0);
}

}  // namespace
}  // namespace crv::mi
