#include "wsc/watcher.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>

#include "support/thrown.h"
#include "wsc/wscapi_patch.h"

namespace crv::wsc {
namespace {

constexpr std::int64_t kSecond = 10'000'000;  // 100-ns ticks

class Hooked : public watcher {
 public:
  explicit Hooked(std::int64_t delay, std::function<void()> hook = {}) : watcher(delay), hook_(hook) {}
  ~Hooked() override { stop(), alive_ = false; }
  int calls() const { return calls_; }

 private:
  void changed() override {
    EXPECT_TRUE(alive_) << "called after its end";
    if (hook_) hook_();
    ++calls_;
  }

  std::function<void()> hook_;
  std::atomic<bool> alive_ = true;
  std::atomic<int> calls_ = 0;
};

// System time stands still until a worker sleeps. The runtime sleeps through the same import, but shortly.
class Watcher : public testing::Test {
 protected:
  // Waits of the tests themselves; only a fault makes one long.
  static bool Within(const std::function<bool()>& condition) {
    for (int pauses = 0; pauses < 10'000 && !condition(); ++pauses) Sleep(1);
    return condition();
  }

  test::WscapiPatch wscapi_;
  std::atomic<std::int64_t> now_ = 0x01D80000'00000000;
  std::vector<DWORD> sleeps_;                     // ms, of the worker
  std::function<void()> while_sleeping_ = [] {};  // at the start of a sleep
  test::ImportFake<decltype(GetSystemTimeAsFileTime)> time_{"kernel32.dll", "GetSystemTimeAsFileTime",
                                                            [this](auto*, FILETIME* time) {
                                                              const std::int64_t now = now_;
                                                              *time = {static_cast<DWORD>(now), static_cast<DWORD>(now >> 32)};
                                                            }};
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto* real, DWORD milliseconds) {
                                             if (milliseconds < 1000) return real(milliseconds);
                                             const std::int64_t end = now_ + milliseconds * (kSecond / 1000);
                                             sleeps_.push_back(milliseconds);
                                             while_sleeping_();
                                             now_ = end;
                                           }};
};

TEST_F(Watcher, NotificationsWithinTheDelayGiveOneCallAfterTheLast) {
  const std::int64_t start = now_;
  std::int64_t called_at = 0;
  while_sleeping_ = [this] {
    if (sleeps_.size() == 1) now_ += 3 * kSecond;
    if (sleeps_.size() <= 2) wscapi_.Notify();  // 3 s and 5 s behind the first one
  };
  Hooked watcher(5, [&] { called_at = now_; });
  wscapi_.Notify();
  EXPECT_TRUE(Within([&] { return watcher.calls() == 1; }));
  watcher.stop();
  EXPECT_THAT(sleeps_, testing::ElementsAre(5000, 3000, 2000));
  EXPECT_EQ(start + 10 * kSecond, called_at);
}

TEST_F(Watcher, StoppingWaitsForASleepingWorkerAndItsCall) {
  std::string calls;
  const auto stopping = [&] { return (calls += wscapi_.TakeCalls()).ends_with("unregister "); };
  while_sleeping_ = [&] { EXPECT_TRUE(Within(stopping)); };
  Hooked watcher(60 * 24 * 3600);  // 60 days, longer than one sleep can be
  wscapi_.Notify();
  watcher.stop();
  EXPECT_EQ(1, watcher.calls());
  EXPECT_THAT(sleeps_, testing::ElementsAre(0x7FFFFFFF, 0x7FFFFFFF, 889'032'706));
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
    const char *step, *thrown, *calls;
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

}  // namespace
}  // namespace crv::wsc
