#include "wsc/security_center_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shlwapi.h>

#include <functional>
#include <optional>

#include "support/captured_log.h"
#include "support/redirected_hive.h"
#include "support/running_services.h"
#include "support/thrown.h"
#include "wsc/wscapi_patch.h"

namespace crv::wsc::sc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEndStarted[] = "narrow 1 wsc: service state at the end of wait is started";
constexpr char kEndNotStarted[] = "narrow 1 wsc: service state at the end of wait is not started";

class Readiness : public testing::Test {
 protected:
  Readiness() { SetStart(REG_DWORD, SERVICE_DEMAND_START, sizeof(DWORD)); }

  static void SetStart(DWORD type, DWORD value, DWORD size) {
    EXPECT_EQ(0u, SHSetValueW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Services\\wscsvc", L"Start", type, &value, size));
  }

  test::RedirectedHive hive_;
  test::CapturedLog log_;
  test::RunningServices services_;
  test::WscapiPatch wscapi_;
  DWORD slept_ = 0;  // ms
  test::ImportFake<decltype(Sleep)> sleep_{"kernel32.dll", "Sleep", [this](auto* real, DWORD milliseconds) {
                                             if (milliseconds < 100) return real(milliseconds);  // the runtime's own
                                             slept_ += milliseconds;
                                           }};

  // What the wait for the event does instead of an hour's waiting: runs `meanwhile_`, then answers `wait_result_`, or what the
  // event says if there is none. The time-outs are kept. The runtime's own waits are short or endless.
  DWORD Wait(decltype(WaitForSingleObject)* real, HANDLE handle, DWORD milliseconds) {
    if (milliseconds < 1000 || milliseconds == INFINITE) return real(handle, milliseconds);
    waits_.push_back(milliseconds);
    if (meanwhile_) meanwhile_();
    if (!wait_result_) return real(handle, 10'000);
    SetLastError(ERROR_INVALID_HANDLE);
    return *wait_result_;
  }

  std::vector<DWORD> waits_;
  std::function<void()> meanwhile_;
  std::optional<DWORD> wait_result_ = WAIT_TIMEOUT;
  test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject",
                                                        [this](auto... arguments) { return Wait(arguments...); }};
};

TEST_F(Readiness, ARunningServiceIsAskedOnceAndNothingElseHappens) {
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"System");
  ensure_running();
  EXPECT_EQ("wscsvc/4 query ", services_.TakeCalls());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Readiness, AStoppedServiceIsStartedAndWaitedFor) {
  for (const DWORD start_type : {SERVICE_AUTO_START, SERVICE_DEMAND_START}) {
    SetStart(REG_DWORD, start_type, sizeof(DWORD));
    services_.States({SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING});
    log_.clear();
    slept_ = 0;
    ensure_running();
    EXPECT_EQ("wscsvc/4 query wscsvc/14 query start query x2 ", services_.TakeCalls());
    EXPECT_EQ(200u, slept_);
    EXPECT_THAT(log_.lines(), ElementsAre("narrow 2 wsc: wscsvc state " + std::to_string(start_type),
                                          "narrow 2 wsc: wscsvc is not running, starting now",
                                          "narrow 1 wsc: wsc service started successfully"));
  }
  EXPECT_EQ("", wscapi_.TakeCalls());
}

TEST_F(Readiness, AServiceThatIsStartingIsOnlyWaitedForAndGivenUpAfter60Hours) {
  services_.States({SERVICE_START_PENDING});
  ensure_running();
  EXPECT_EQ("wscsvc/4 query wscsvc/14 query x2160001 ", services_.TakeCalls());
  EXPECT_EQ(216'000'000u, slept_);
  EXPECT_EQ("narrow 5 wsc: cannot start wsc service", log_.lines().back());
}

TEST_F(Readiness, FailuresOfTheServiceManagerPass) {
  struct Case {
    const char* step;
    DWORD code;
    const char* thrown;
  };
  const Case cases[] = {{"manager", 5, "error 00000005 Unable to open the service control manager!"},
                        {"open", 1060, "error 00000424 Unable to open the service 'wscsvc'!"},
                        {"query", 6, "error 00000006 Unable to query status of the service 'wscsvc'!"},
                        {"start", 1058, "error 00000422 Unable to start the service 'wscsvc'!"}};
  services_.States({SERVICE_STOPPED});
  for (const Case& c : cases) {
    services_.Fail(c.step, c.code);
    EXPECT_EQ(c.thrown, test::Thrown(ensure_running));
  }
}

TEST_F(Readiness, AnUnreadableStartTypeIsTheCodeOfTheRead) {
  services_.States({SERVICE_STOPPED});
  SetStart(REG_SZ, '4', sizeof(DWORD));
  EXPECT_EQ("error 0000000d cannot get wscsvc status", test::Thrown(ensure_running));
  SetStart(REG_DWORD, 3, 2);
  EXPECT_EQ("error 0000000d cannot get wscsvc status", test::Thrown(ensure_running));
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, L"System");
  EXPECT_EQ("error 00000002 cannot get wscsvc status", test::Thrown(ensure_running));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
}

// With start type 4, as which the service is never started but waited for.
class DisabledService : public Readiness {
 protected:
  DisabledService() {
    SetStart(REG_DWORD, SERVICE_DISABLED, sizeof(DWORD));
    services_.States({SERVICE_STOPPED});
  }
};

TEST_F(DisabledService, IsNoticedWhenSomebodyElseStartsIt) {
  // The states seen: at the start, before the wait, after a change that was none of the service's, after the start.
  services_.States({SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING});
  meanwhile_ = [this] { EXPECT_TRUE(wscapi_.Notify()); };
  wait_result_.reset();
  ensure_running();
  EXPECT_THAT(waits_, ElementsAre(3'600'000, 3'600'000)) << "the time starts anew with each change";
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
  EXPECT_EQ("load register unregister free ", wscapi_.TakeCalls());
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 2 wsc: wscsvc state 4", kEndStarted));
}

TEST_F(DisabledService, EveryEndOfTheWaitTakesTheWatcherDown) {
  struct Case {
    std::vector<DWORD> states;
    DWORD wait_result;
    const char* watcher_fails;
    bool event_fails;
    const char* thrown;
    std::size_t waits;
    const char* library;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {{SERVICE_STOPPED, SERVICE_RUNNING}, WAIT_TIMEOUT, "", false, "nothing", 0, "load register unregister free ", {kEndStarted}},
      {{SERVICE_STOPPED}, WAIT_TIMEOUT, "", false, "nothing", 1, "load register unregister free ",
       {"narrow 3 wsc: waiting for wsc timeouted", kEndNotStarted}},
      {{SERVICE_STOPPED}, WAIT_FAILED, "", false, "error 00000006 event wait error", 1, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, WAIT_ABANDONED, "", false, "error 00000006 event wait error", 1, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, WAIT_TIMEOUT, "", true, "error 000005aa cannot create event", 0, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, WAIT_TIMEOUT, "registering", false, "error 80070005 WscRegisterForChanges", 0, "load register free ", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportFake<decltype(CreateEventW)> create(
        "kernel32.dll", "CreateEventW",
        [&c](auto* real, SECURITY_ATTRIBUTES* security, BOOL manual_reset, BOOL signalled, const wchar_t* name) -> HANDLE {
          EXPECT_TRUE(!security && !manual_reset && !signalled && !name);
          if (!c.event_fails) return real(security, manual_reset, signalled, name);
          SetLastError(ERROR_NO_SYSTEM_RESOURCES);
          return nullptr;
        });
    services_.States(c.states);
    wait_result_ = c.wait_result;
    wscapi_.Fail(c.watcher_fails);
    waits_.clear();
    log_.clear();
    EXPECT_EQ(c.thrown, test::Thrown(ensure_running));
    EXPECT_EQ(std::vector<DWORD>(c.waits, 3'600'000), waits_);
    EXPECT_EQ(c.library, wscapi_.TakeCalls());
    std::vector<std::string> lines = c.lines;
    lines.insert(lines.begin(), "narrow 2 wsc: wscsvc state 4");
    EXPECT_EQ(lines, log_.lines());
  }
}

// The watcher has to be stopped before the event is closed: a worker that is under way then still signals an open one.
TEST_F(DisabledService, TheEventIsClosedAfterTheLastChange) {
  std::vector<std::string> order;
  HANDLE event = nullptr;
  const test::ImportFake<decltype(CreateEventW)> create("kernel32.dll", "CreateEventW", [&](auto* real, auto... arguments) {
    return event = real(arguments...);
  });
  const test::ImportFake<decltype(SetEvent)> set("kernel32.dll", "SetEvent", [&](auto* real, HANDLE handle) {
    if (handle == event) order.push_back("set");
    return real(handle);
  });
  const test::ImportFake<decltype(CloseHandle)> close("kernel32.dll", "CloseHandle", [&](auto* real, HANDLE handle) {
    if (handle == event) order.push_back("close " + wscapi_.TakeCalls());
    return real(handle);
  });
  {
    wscsvc service;
    wscapi_.Notify();
  }
  EXPECT_THAT(order, ElementsAre("set", "close load register unregister "));
  EXPECT_EQ("free ", wscapi_.TakeCalls());
}

}  // namespace
}  // namespace crv::wsc::sc
