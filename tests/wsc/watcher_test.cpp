#include "wsc/watcher.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <vector>

#include "support/thrown.h"
#include "wsc/wscapi_patch.h"

namespace crv::wsc {
namespace {

constexpr std::int64_t kSecond = 10'000'000;  // 100-ns ticks

// Waits of the tests themselves; only a fault makes one long.
bool Within(const std::function<bool()>& condition) {
  for (int pauses = 0; !condition(); ++pauses) {
    if (pauses == 10'000) return false;
    Sleep(1);
  }
  return true;
}

class Hooked : public watcher {
 public:
  explicit Hooked(
      std::int64_t delay, std::function<void()> hook = [] {})
      : watcher(delay), hook_(hook) {}
  ~Hooked() override {
    stop();
    alive_ = false;
  }
  int calls() const { return calls_; }

 private:
  void changed() override {
    EXPECT_TRUE(alive_) << "called after its end";
    hook_();
    ++calls_;
  }

  std::function<void()> hook_;
  std::atomic<bool> alive_ = true;
  std::atomic<int> calls_ = 0;
};

// System time and sleeping as the test says: time stands still until the test moves it, and a sleeper wakes when it has come.
// The runtime reads the time and sleeps through the same imports: it may read what it likes, and its sleeps are short.
class Watcher : public testing::Test {
 protected:
  void Advance(std::int64_t seconds) { now_ += seconds * kSecond; }

  // Waits for the sleep with this number, counted from 1, to have begun, and says how many ms were asked for.
  DWORD AwaitSleep(std::size_t number) {
    const auto begun = [&] {
      const std::lock_guard lock(mutex_);
      return sleeps_.size() >= number;
    };
    return Within(begun) ? sleeps_[number - 1] : 0;
  }

  test::WscapiPatch wscapi_;
  std::atomic<std::int64_t> now_ = 0x01D80000'00000000;

 private:
  void SleepByClock(decltype(Sleep)* real, DWORD milliseconds) {
    if (milliseconds < 1000) return real(milliseconds);
    const std::int64_t end = now_ + std::int64_t{milliseconds} * 10'000;
    {
      const std::lock_guard lock(mutex_);
      sleeps_.push_back(milliseconds);
    }
    EXPECT_TRUE(Within([&] { return now_ >= end; })) << "nobody moves the clock";
  }

  std::mutex mutex_;
  std::vector<DWORD> sleeps_;
  test::ImportFake<decltype(GetSystemTimeAsFileTime)> time_{"kernel32.dll", "GetSystemTimeAsFileTime",
                                                            [this](auto*, FILETIME* time) {
                                                              const std::int64_t now = now_;
                                                              time->dwLowDateTime = static_cast<DWORD>(now);
                                                              time->dwHighDateTime = static_cast<DWORD>(now >> 32);
                                                            }};
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto... arguments) { SleepByClock(arguments...); }};
};

TEST_F(Watcher, NotificationsWithinTheDelayGiveOneCallAfterTheLast) {
  const std::int64_t start = now_;
  std::atomic<std::int64_t> called_at = 0;
  Hooked watcher(5, [&] { called_at = now_.load(); });
  EXPECT_TRUE(wscapi_.Notify());
  EXPECT_EQ(5000u, AwaitSleep(1));
  Advance(3);
  wscapi_.Notify();  // the deadline is 8 s
  Advance(2);
  EXPECT_EQ(3000u, AwaitSleep(2));
  wscapi_.Notify();  // the deadline is 10 s
  Advance(3);
  EXPECT_EQ(2000u, AwaitSleep(3));
  EXPECT_EQ(0, watcher.calls());
  Advance(2);
  EXPECT_TRUE(Within([&] { return watcher.calls() == 1; }));
  watcher.stop();
  EXPECT_EQ(1, watcher.calls());
  EXPECT_EQ(start + 10 * kSecond, called_at);
}

TEST_F(Watcher, StoppingWaitsForASleepingWorkerAndItsCall) {
  constexpr std::int64_t kDelay = 60 * 24 * 3600;  // 60 days, longer than one sleep can be
  Hooked watcher(kDelay);
  wscapi_.Notify();
  EXPECT_EQ(0x7FFFFFFFu, AwaitSleep(1));
  std::atomic<bool> stopped = false;
  std::thread stopping([&] {
    watcher.stop();
    EXPECT_EQ(1, watcher.calls());
    stopped = true;
  });
  std::string calls;
  EXPECT_TRUE(Within([&] { return (calls += wscapi_.TakeCalls()).ends_with("unregister "); }));
  Advance(0x7FFFFFFF / 1000 + 1);
  AwaitSleep(2);
  EXPECT_FALSE(stopped);
  Advance(kDelay);
  stopping.join();
}

TEST_F(Watcher, ANotificationDuringTheCallGivesASecondCall) {
  std::thread second;
  Hooked watcher(0, [&] {
    if (second.joinable()) return;
    second = std::thread([&] { wscapi_.Notify(); });
    Sleep(20);  // lets it reach the mutex that this call holds
  });
  wscapi_.Notify();
  EXPECT_TRUE(Within([&] { return watcher.calls() == 2; }));
  second.join();
}

// Nobody waits for the last instructions of a detached worker, so a host must not be able to unload them.
TEST_F(Watcher, AWorkerMakesItsLibraryStayLoadedBeforeItRuns) {
  std::atomic<HMODULE> pinned = nullptr;
  const test::ImportFake<decltype(GetModuleHandleExW)> pin(
      "kernel32.dll", "GetModuleHandleExW", [&](auto* real, DWORD flags, const wchar_t* address, HMODULE* module) {
        const BOOL found = real(flags, address, module);
        if (flags == (GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS)) pinned = *module;
        return found;
      });
  HMODULE at_the_call = nullptr;
  Hooked watcher(0, [&] { at_the_call = pinned; });
  wscapi_.Notify();
  watcher.stop();
  EXPECT_EQ(GetModuleHandleW(nullptr), at_the_call);
}

TEST_F(Watcher, AFailedConstructionGivesItsCodeAndReleasesTheLibrary) {
  const struct {
    const char* step;
    const char* thrown;
    const char* calls;
  } cases[] = {{"LoadLibraryW", "error 0000007e cannot load wscapi.dll", "load "},
               {"WscRegisterForChanges", "error 0000007f GetProcAddress (WscRegisterForChanges)", "load free "},
               {"WscUnRegisterChanges", "error 0000007f GetProcAddress (WscUnRegisterChanges)", "load free "},
               {"registering", "error 80070005 WscRegisterForChanges", "load register free "}};
  for (const auto& c : cases) {
    wscapi_.Fail(c.step);
    EXPECT_EQ(c.thrown, test::Thrown([] { watcher fails(0); }));
    EXPECT_EQ(c.calls, wscapi_.TakeCalls()) << c.step;
  }
}

// Each notification takes a number before it is made; a call of `changed` that starts after it sees at least that number.
TEST_F(Watcher, NoneOfThousandsOfNotificationsIsLost) {
  std::atomic<int> numbers = 0, delivered = 0, seen = 0;
  std::atomic<bool> end = false;
  std::vector<std::thread> notifiers;
  for (int i = 0; i < 4; ++i) {
    notifiers.emplace_back([&] {
      while (!end) {
        const int number = ++numbers;
        const auto made = [&] {
          for (int last = delivered; last < number && !delivered.compare_exchange_weak(last, number);) {
          }
        };
        if (!wscapi_.Notify(made)) Sleep(1);
      }
    });
  }
  for (int round = 0; round < 100 && !HasFailure(); ++round) {
    Hooked watcher(0, [&] { seen = numbers.load(); });
    EXPECT_TRUE(Within([&] { return watcher.calls() > round % 4; }));
    watcher.stop();
    EXPECT_LE(delivered, seen) << "a notification was lost in round " << round;
  }
  end = true;
  for (std::thread& notifier : notifiers) notifier.join();
  EXPECT_GT(delivered, 1000);
}

}  // namespace
}  // namespace crv::wsc
