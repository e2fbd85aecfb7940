#include "wsc/security_center_service.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/wscapi_patch.h"

namespace crv::wsc::sc {
namespace {

using Lines = std::vector<std::string>;

constexpr DWORD kHour = 3'600'000;  // ms
constexpr DWORD kAsTheEventSays = 0xBAD;

class Readiness : public testing::Test {
 protected:
  static void SetStart(DWORD type, DWORD value) {
    constexpr wchar_t kKey[] = L"System\\CurrentControlSet\\Services\\wscsvc";
    EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, kKey, L"Start", type, &value, sizeof(value)));
  }

  // What the wait for the event does instead of an hour's waiting: Security Center notifies of a change, and the wait ends with
  // `wait_result_`. The runtime's own waits are short or endless.
  DWORD Wait(decltype(WaitForSingleObject)* real, HANDLE handle, DWORD milliseconds) {
    if (milliseconds < 1000 || milliseconds == INFINITE) return real(handle, milliseconds);
    waits_.push_back(milliseconds);
    waited_for_ = handle;
    wscapi_.Notify();
    if (wait_result_ != kAsTheEventSays) return SetLastError(ERROR_INVALID_HANDLE), wait_result_;
    const DWORD result = real(handle, 10'000);
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, real(handle, 0)) << "one change is seen once";
    return result;
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RunningServices services_;
  test::WscapiPatch wscapi_;
  DWORD slept_ = 0;  // ms
  std::vector<DWORD> waits_;
  HANDLE waited_for_ = nullptr;
  DWORD wait_result_ = kAsTheEventSays;
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto* real, DWORD milliseconds) {
                                             if (milliseconds < 100) return real(milliseconds);  // the runtime's own
                                             slept_ += milliseconds;
                                           }};
  test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject",
                                                        [this](auto... arguments) { return Wait(arguments...); }};
};

TEST_F(Readiness, AServiceThatIsNotDisabledIsMadeToRun) {
  SetStart(REG_DWORD, 2);
  services_.States({SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING});
  ensure_running();
  EXPECT_EQ("wscsvc/4 query wscsvc/14 query start query x2 ", services_.TakeCalls());
  EXPECT_EQ(200u, std::exchange(slept_, 0));
  services_.States({SERVICE_START_PENDING});
  ensure_running();
  EXPECT_EQ("wscsvc/4 query wscsvc/14 query x2160001 ", services_.TakeCalls());
  EXPECT_EQ(60 * kHour, slept_);
  EXPECT_EQ(Lines({"narrow 2 wsc: wscsvc state 2", "narrow 2 wsc: wscsvc is not running, starting now",
                   "narrow 1 wsc: wsc service started successfully", "narrow 2 wsc: wscsvc state 2",
                   "narrow 2 wsc: wscsvc is not running, starting now", "narrow 5 wsc: cannot start wsc service"}),
            log_.lines());
  EXPECT_EQ("", wscapi_.TakeCalls());
}

TEST_F(Readiness, AnUnknownStartTypeIsAnErrorAndNothingIsStarted) {
  const test::ImportFake<decltype(free)> spoils_the_last_error(
      "msvcrt.dll", "free", [](auto* real, void* block) { real(block), SetLastError(ERROR_INVALID_FUNCTION); });
  ensure_running();  // it runs: its start type does not matter
  services_.States({SERVICE_STOPPED});
  EXPECT_EQ("error 00000002 cannot get wscsvc status", test::Thrown(ensure_running));
  SetStart(REG_SZ, '4');
  EXPECT_EQ("error 0000000d cannot get wscsvc status", test::Thrown(ensure_running));
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
  EXPECT_EQ(Lines(), log_.lines());
}

TEST_F(Readiness, ADisabledServiceIsNeverStartedButWaitedFor) {
  constexpr char kEndStarted[] = "narrow 1 wsc: service state at the end of wait is started";
  constexpr char kEndNotStarted[] = "narrow 1 wsc: service state at the end of wait is not started";
  SetStart(REG_DWORD, SERVICE_DISABLED);
  const struct {
    std::vector<DWORD> states;  // at the start, before the wait, after each change
    DWORD wait_result;
    const char* thrown;
    std::size_t waits;
    Lines log;  // behind the start type
  } cases[] = {
      {{SERVICE_STOPPED, SERVICE_RUNNING}, kAsTheEventSays, "nothing", 0, {kEndStarted}},
      // The time starts anew with each change.
      {{SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING}, kAsTheEventSays, "nothing", 2, {kEndStarted}},
      {{SERVICE_STOPPED}, WAIT_TIMEOUT, "nothing", 1, {"narrow 3 wsc: waiting for wsc timeouted", kEndNotStarted}},
      {{SERVICE_STOPPED}, WAIT_FAILED, "error 00000006 event wait error", 1, {}},
      {{SERVICE_STOPPED}, WAIT_ABANDONED, "error 00000006 event wait error", 1, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    services_.States(c.states);
    wait_result_ = c.wait_result;
    waits_.clear();
    log_.clear();
    EXPECT_EQ(c.thrown, test::Thrown(ensure_running));
    EXPECT_EQ(std::vector<DWORD>(c.waits, kHour), waits_);
    EXPECT_EQ("load register unregister free ", wscapi_.TakeCalls());
    Lines lines = c.log;
    lines.insert(lines.begin(), "narrow 2 wsc: wscsvc state 4");
    EXPECT_EQ(lines, log_.lines());
    EXPECT_EQ(std::string::npos, services_.TakeCalls().find("start"));
  }
}

// The first change may be reported while the watcher still registers: by then there is an event to signal.
TEST_F(Readiness, WithoutAnEventNobodyRegistersForChanges) {
  SetStart(REG_DWORD, SERVICE_DISABLED);
  services_.States({SERVICE_STOPPED});
  const test::ImportFake<decltype(CreateEventW)> refuse(
      "kernel32.dll", "CreateEventW", [](auto*, auto...) { return SetLastError(ERROR_NO_SYSTEM_RESOURCES), nullptr; });
  EXPECT_EQ("error 000005aa cannot create event", test::Thrown(ensure_running));
  EXPECT_EQ("", wscapi_.TakeCalls());
}

// A worker that is on its way when the wait ends still finds its event and signals it.
TEST_F(Readiness, TheWaitStopsItsWatcherFirst) {
  SetStart(REG_DWORD, SERVICE_DISABLED);
  services_.States({SERVICE_STOPPED});
  wait_result_ = WAIT_TIMEOUT;
  const DWORD owner = GetCurrentThreadId();
  const test::ImportFake<decltype(GetSystemTimeAsFileTime)> hold_the_worker(
      "kernel32.dll", "GetSystemTimeAsFileTime", [&](auto* real, FILETIME* time) {
        for (std::string calls; GetCurrentThreadId() != owner && calls.find("unregister") == std::string::npos; Sleep(1)) {
          calls += wscapi_.TakeCalls();
        }
        real(time);
      });
  std::vector<HANDLE> signalled;
  const test::ImportFake<decltype(SetEvent)> signal("kernel32.dll", "SetEvent", [&](auto* real, HANDLE event) {
    signalled.push_back(event);
    return real(event);
  });
  ensure_running();
  EXPECT_EQ(1, std::count(signalled.begin(), signalled.end(), waited_for_));
}

}  // namespace
}  // namespace crv::wsc::sc
