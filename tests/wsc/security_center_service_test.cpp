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

constexpr DWORD kHour = 3'600'000;  // ms
constexpr char kEndStarted[] = "narrow 1 wsc: service state at the end of wait is started";
constexpr char kEndNotStarted[] = "narrow 1 wsc: service state at the end of wait is not started";

class Readiness : public testing::Test {
 protected:
  static void SetStart(DWORD type, DWORD value, DWORD size = sizeof(DWORD)) {
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
  std::optional<DWORD> wait_result_;
  test::ImportFake<decltype(WaitForSingleObject)> wait_{"kernel32.dll", "WaitForSingleObject",
                                                        [this](auto... arguments) { return Wait(arguments...); }};
};

TEST_F(Readiness, AServiceThatIsNotDisabledIsMadeToRun) {
  const std::vector<DWORD> stopped = {SERVICE_STOPPED};
  const struct {
    DWORD start_type;
    std::vector<DWORD> states;  // seen by one query after the other; the last one stays
    const char* step;           // that fails
    DWORD code;
    const char* thrown;
    const char* calls;
    DWORD slept;
    std::vector<std::string> log;  // behind the start type
  } cases[] = {
      {2, {SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING}, "", 0, "nothing",
       "wscsvc/4 query wscsvc/14 query start query x2 ", 200,
       {"narrow 2 wsc: wscsvc is not running, starting now", "narrow 1 wsc: wsc service started successfully"}},
      {3, {SERVICE_START_PENDING}, "", 0, "nothing", "wscsvc/4 query wscsvc/14 query x2160001 ", 60 * kHour,
       {"narrow 2 wsc: wscsvc is not running, starting now", "narrow 5 wsc: cannot start wsc service"}},
      {3, stopped, "start", 1058, "error 00000422 Unable to start the service 'wscsvc'!",
       "wscsvc/4 query wscsvc/14 query start ", 0, {"narrow 2 wsc: wscsvc is not running, starting now"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    SetStart(REG_DWORD, c.start_type);
    services_.States(c.states);
    services_.Fail(c.step, c.code);
    log_.clear();
    slept_ = 0;
    EXPECT_EQ(c.thrown, test::Thrown(ensure_running));
    EXPECT_EQ(c.calls, services_.TakeCalls());
    EXPECT_EQ(c.slept, slept_);
    std::vector<std::string> lines = c.log;
    lines.insert(lines.begin(), "narrow 2 wsc: wscsvc state " + std::to_string(c.start_type));
    EXPECT_EQ(lines, log_.lines());
  }
  EXPECT_EQ("", wscapi_.TakeCalls());
}

TEST_F(Readiness, WhatCannotBeAskedIsAnErrorAndNothingIsStarted) {
  ensure_running();  // it runs: its start type does not matter
  services_.States({SERVICE_STOPPED});
  EXPECT_EQ("error 00000002 cannot get wscsvc status", test::Thrown(ensure_running));
  SetStart(REG_SZ, '4');
  EXPECT_EQ("error 0000000d cannot get wscsvc status", test::Thrown(ensure_running));
  SetStart(REG_DWORD, 3, 2);
  EXPECT_EQ("error 0000000d cannot get wscsvc status", test::Thrown(ensure_running));
  services_.Fail("query", 6);
  EXPECT_EQ("error 00000006 Unable to query status of the service 'wscsvc'!", test::Thrown(ensure_running));
  EXPECT_EQ("wscsvc/4 query wscsvc/4 query wscsvc/4 query wscsvc/4 query wscsvc/4 query ", services_.TakeCalls());
  EXPECT_THAT(log_.lines(), testing::IsEmpty());
}

TEST_F(Readiness, ADisabledServiceIsNeverStartedButWaitedFor) {
  SetStart(REG_DWORD, SERVICE_DISABLED);
  const struct {
    std::vector<DWORD> states;         // at the start, before the wait, after each change
    std::optional<DWORD> wait_result;  // none: changes are notified
    const char* failing;               // of the watcher; or "event"
    const char* thrown;
    std::size_t waits;
    const char* library;
    std::vector<std::string> log;  // behind the start type
  } cases[] = {
      {{SERVICE_STOPPED, SERVICE_RUNNING}, {}, "", "nothing", 0, "load register unregister free ", {kEndStarted}},
      // The time starts anew with each change.
      {{SERVICE_STOPPED, SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING}, {}, "", "nothing", 2,
       "load register unregister free ", {kEndStarted}},
      {{SERVICE_STOPPED}, WAIT_TIMEOUT, "", "nothing", 1, "load register unregister free ",
       {"narrow 3 wsc: waiting for wsc timeouted", kEndNotStarted}},
      {{SERVICE_STOPPED}, WAIT_FAILED, "", "error 00000006 event wait error", 1, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, WAIT_ABANDONED, "", "error 00000006 event wait error", 1, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, {}, "event", "error 000005aa cannot create event", 0, "load register unregister free ", {}},
      {{SERVICE_STOPPED}, {}, "registering", "error 80070005 WscRegisterForChanges", 0, "load register free ", {}},
  };
  meanwhile_ = [this] { EXPECT_TRUE(wscapi_.Notify()); };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ImportFake<decltype(CreateEventW)> create(
        "kernel32.dll", "CreateEventW", [&c](auto* real, auto security, BOOL manual_reset, BOOL signalled, auto name) -> HANDLE {
          EXPECT_TRUE(!security && !manual_reset && !signalled && !name);
          if (c.failing != std::string("event")) return real(security, manual_reset, signalled, name);
          return SetLastError(ERROR_NO_SYSTEM_RESOURCES), nullptr;
        });
    services_.States(c.states);
    wait_result_ = c.wait_result;
    wscapi_.Fail(c.failing);
    waits_.clear();
    log_.clear();
    EXPECT_EQ(c.thrown, test::Thrown(ensure_running));
    EXPECT_EQ(std::vector<DWORD>(c.waits, kHour), waits_);
    EXPECT_EQ(c.library, wscapi_.TakeCalls());
    std::vector<std::string> lines = c.log;
    lines.insert(lines.begin(), "narrow 2 wsc: wscsvc state 4");
    EXPECT_EQ(lines, log_.lines());
    EXPECT_EQ(std::string::npos, services_.TakeCalls().find("start"));
  }
}

// The watcher has to be stopped before the event is closed: a worker that is under way then still signals an open one.
TEST_F(Readiness, TheEventIsClosedAfterTheLastChange) {
  std::vector<std::string> order;
  HANDLE event = nullptr;
  const test::ImportFake<decltype(CreateEventW)> create(
      "kernel32.dll", "CreateEventW", [&](auto* real, auto... arguments) { return event = real(arguments...); });
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
}

}  // namespace
}  // namespace crv::wsc::sc
