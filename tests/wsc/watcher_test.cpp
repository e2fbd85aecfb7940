#include "wsc/watcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tlhelp32.h>

#include <atomic>
#include <functional>
#include <vector>

#include "support/thrown.h"
#include "wsc/wscapi_patch.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kSecond = 10'000'000;

// Waits of the tests themselves; only a fault makes one long.
bool Within(std::function<bool()> condition) {
  for (int pauses = 0; !condition(); ++pauses) {
    if (pauses == 10'000) return false;
    Sleep(1);
  }
  return true;
}

// System time and sleeping as the test says: time stands still until the test moves it, and a sleeper wakes when it has come.
// The runtime reads the time and sleeps through the same imports: it may read what it likes, and its sleeps are short.
struct Clock {
  std::atomic<std::int64_t> now = 0x01D80000'00000000;
  std::atomic<int> sleeping = 0;
  std::mutex mutex;
  std::vector<DWORD> sleeps;  // ms asked for
  decltype(&::Sleep) really_sleep = nullptr;

  void Advance(std::int64_t seconds) { now += seconds * kSecond; }
  // Waits for the sleep with this number, counted from 1, to have begun.
  void AwaitSleep(std::size_t number) {
    EXPECT_TRUE(Within([&] {
      const std::lock_guard lock(mutex);
      return sleeps.size() >= number;
    })) << "no sleep "
        << number;
  }
} clock_;

void WINAPI ReadClock(FILETIME* time) {
  const std::int64_t now = clock_.now;
  time->dwLowDateTime = static_cast<DWORD>(now);
  time->dwHighDateTime = static_cast<DWORD>(now >> 32);
}

void WINAPI SleepByClock(DWORD milliseconds) {
  if (milliseconds < 1000) return clock_.really_sleep(milliseconds);
  const std::int64_t end = clock_.now + std::int64_t{milliseconds} * 10'000;
  ++clock_.sleeping;
  {
    const std::lock_guard lock(clock_.mutex);
    clock_.sleeps.push_back(milliseconds);
  }
  EXPECT_TRUE(Within([&] { return clock_.now >= end; })) << "nobody moves the clock";
  --clock_.sleeping;
}

class Hooked : public watcher {
 public:
  explicit Hooked(std::int64_t delay, std::function<void()> hook = [] {}) : watcher(delay), hook_(hook) {}
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

class Watcher : public testing::Test {
 protected:
  Watcher() {
    clock_.sleeps.clear();
    clock_.really_sleep = sleep_.original<decltype(clock_.really_sleep)>();
  }
  ~Watcher() override { EXPECT_EQ(0, clock_.sleeping); }

  test::WscapiPatch wscapi_;
  test::ImportPatch time_{"kernel32.dll", "GetSystemTimeAsFileTime", reinterpret_cast<void*>(&ReadClock)};
  test::ImportPatch sleep_{"kernel32.dll", "Sleep", reinterpret_cast<void*>(&SleepByClock)};
};

TEST_F(Watcher, NotificationsWithinTheDelayGiveOneCallAfterTheLast) {
  const std::int64_t start = clock_.now;
  std::atomic<std::int64_t> called_at = 0;
  Hooked watcher(5, [&] { called_at = clock_.now.load(); });
  EXPECT_TRUE(wscapi_.Notify());
  clock_.AwaitSleep(1);
  clock_.Advance(3);
  wscapi_.Notify();  // the deadline is 8 s
  clock_.Advance(2);
  clock_.AwaitSleep(2);
  wscapi_.Notify();  // the deadline is 10 s
  clock_.Advance(3);
  clock_.AwaitSleep(3);
  EXPECT_EQ(0, watcher.calls());
  clock_.Advance(2);
  EXPECT_TRUE(Within([&] { return watcher.calls() == 1; }));
  watcher.stop();
  EXPECT_EQ(1, watcher.calls());
  EXPECT_EQ(start + 10 * kSecond, called_at);
  EXPECT_THAT(clock_.sleeps, ElementsAre(5000, 3000, 2000));
}

TEST_F(Watcher, ADelayBeyondTheLongestSleepIsSleptInPieces) {
  constexpr std::int64_t kDays = 60 * 24 * 3600;
  Hooked watcher(kDays);
  wscapi_.Notify();
  clock_.AwaitSleep(1);
  EXPECT_EQ(0x7FFFFFFFu, clock_.sleeps[0]);
  clock_.Advance(0x7FFFFFFF / 1000 + 1);
  clock_.AwaitSleep(2);
  EXPECT_EQ(0, watcher.calls());
  clock_.Advance(kDays);
  watcher.stop();
  EXPECT_EQ(1, watcher.calls());
}

TEST_F(Watcher, WithoutADelayEveryNotificationThatFindsNoWorkerIsAnswered) {
  Hooked watcher(0);
  for (int i = 1; i <= 3; ++i) {
    wscapi_.Notify();
    EXPECT_TRUE(Within([&] { return watcher.calls() == i; }));
  }
  EXPECT_THAT(clock_.sleeps, ElementsAre());
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
  EXPECT_EQ(nullptr, pinned);
  wscapi_.Notify();
  watcher.stop();
  EXPECT_EQ(GetModuleHandleW(nullptr), at_the_call);
}

TEST_F(Watcher, ANotificationDuringTheCallGivesASecondCall) {
  std::atomic<bool> notifying = false;
  std::thread second;
  int calls = 0;
  {
    Hooked watcher(0, [&] {
      if (++calls > 1) return;
      second = std::thread([&] {
        notifying = true;
        wscapi_.Notify();
      });
      EXPECT_TRUE(Within([&] { return notifying.load(); }));
      Sleep(20);  // lets it reach the mutex that this call holds
    });
    wscapi_.Notify();
    EXPECT_TRUE(Within([&] { return watcher.calls() == 2; }));
    second.join();
  }
  EXPECT_EQ(2, calls);
}

TEST_F(Watcher, StoppingAnIdleWatcherUnregistersOnce) {
  {
    Hooked watcher(5);
    watcher.stop();
    EXPECT_FALSE(wscapi_.Notify());
    EXPECT_EQ("load register unregister ", wscapi_.TakeCalls());
    watcher.stop();
  }
  EXPECT_EQ("free ", wscapi_.TakeCalls());
}

TEST_F(Watcher, StoppingWaitsForASleepingWorkerAndItsCall) {
  Hooked watcher(5);
  wscapi_.Notify();
  clock_.AwaitSleep(1);
  std::atomic<bool> stopped = false;
  std::thread stopping([&] {
    watcher.stop();
    EXPECT_EQ(1, watcher.calls());
    stopped = true;
  });
  std::string calls;
  EXPECT_TRUE(Within([&] { return (calls += wscapi_.TakeCalls()).ends_with("unregister "); }));
  Sleep(20);
  EXPECT_FALSE(stopped);
  clock_.Advance(5);
  stopping.join();
  EXPECT_TRUE(stopped);
}

TEST_F(Watcher, AFailedConstructionGivesItsCodeAndReleasesTheLibrary) {
  struct Case {
    const char* step;
    const char* thrown;
    const char* calls;
  };
  const Case cases[] = {{"LoadLibraryW", "error 0000007e cannot load wscapi.dll", "load "},
                        {"WscRegisterForChanges", "error 0000007f GetProcAddress (WscRegisterForChanges)", "load free "},
                        {"WscUnRegisterChanges", "error 0000007f GetProcAddress (WscUnRegisterChanges)", "load free "},
                        {"registering", "error 80070005 WscRegisterForChanges", "load register free "}};
  for (const Case& c : cases) {
    wscapi_.Fail(c.step);
    EXPECT_EQ(c.thrown, test::Thrown([] { watcher fails(0); }));
    EXPECT_EQ(c.calls, wscapi_.TakeCalls()) << c.step;
  }
}

int ThreadsOfThisProcess() {
  const root::ScopedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry = {sizeof(entry)};
  int count = 0;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId();
  }
  return count;
}

// Each notification takes a number before it is made; a call of `changed` that starts after it sees at least that number.
TEST_F(Watcher, NoneOfThousandsOfNotificationsIsLostAndNoThreadStays) {
  const int threads_before = ThreadsOfThisProcess();
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
  int calls = 0;
  for (int round = 0; round < 100 && !HasFailure(); ++round) {
    Hooked watcher(0, [&] { seen = numbers.load(); });
    EXPECT_TRUE(Within([&] { return watcher.calls() > round % 4; }));
    watcher.stop();
    EXPECT_LE(delivered, seen) << "a notification was lost in round " << round;
    calls += watcher.calls();
  }
  end = true;
  for (std::thread& notifier : notifiers) notifier.join();
  EXPECT_GT(delivered, 1000);
  EXPECT_GE(calls, 100);
  EXPECT_TRUE(Within([&] { return ThreadsOfThisProcess() <= threads_before; })) << ThreadsOfThisProcess() - threads_before << " stay";
}

}  // namespace
}  // namespace crv::wsc
