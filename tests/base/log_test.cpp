#include "base/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "base/exceptions.h"
#include "support/captured_log.h"

namespace crv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const log::Tag tag("wsc");

// Every way into the library.
const std::vector<void (*)()> kEntryPoints = {
    [] { log::Info(tag, "%s %d", "i", 1); },
    [] { log::Debug(tag, "d"); },
    [] { log::Warning(tag, "w"); },
    [] { log::Error(tag, "e"); },
    [] { log::Critical(tag, "c"); },
    [] { log::Info(tag, L"%s %d", L"i", 1); },
    [] { log::Debug(tag, L"d"); },
    [] { log::Warning(tag, L"w"); },
    [] { log::Error(tag, L"e"); },
    [] { log::Critical(tag, L"c"); },
    [] { log::LogException(tag, exceptions::fatal(160, "bad action"), "run"); },
    [] { log::LogExceptionAtLevel(log::LogLevel::error, tag, std::runtime_error("odd"), "context %d", 2); },
    [] { log::OpenLogFile(L"C:\\log\\wsc.log"); },
    [] { log::LogStream(log::LogLevel::error, log::Tag("eleven char+s")) << L"Dump path '" << L"100%s" << L"' " << 5; },
};

TEST(Log, EveryEntryPointReachesItsOperationUnformattedAndReleasesTheLibrary) {
  test::CapturedLog captured;
  for (const auto call : kEntryPoints) call();
  EXPECT_THAT(captured.lines(),
              ElementsAre("narrow 1 wsc: i 1", "narrow 2 wsc: d", "narrow 3 wsc: w", "narrow 4 wsc: e", "narrow 5 wsc: c",
                          "wide 1 wsc: i 1", "wide 2 wsc: d", "wide 3 wsc: w", "wide 4 wsc: e", "wide 5 wsc: c",
                          "exception 0 wsc: run: bad action [000000a0]", "exception at 4 wsc: context 2: odd",
                          "open 0 : C:\\log\\wsc.log 4194304 true", "variadic 4 eleven char: Dump path '100%s' 5"));
  EXPECT_EQ(14, captured.acquisitions()) << "the module is acquired for every record";

  captured.clear();
  for (const auto behaviour : {test::CapturedLog::Behaviour::no_logger, test::CapturedLog::Behaviour::no_module}) {
    captured.Behave(behaviour);
    for (const auto call : kEntryPoints) call();
    EXPECT_THAT(captured.lines(), IsEmpty());
  }
  captured.Behave(test::CapturedLog::Behaviour::throws);
  for (const auto call : kEntryPoints) EXPECT_THROW(call(), std::runtime_error);
  EXPECT_EQ(0, captured.live_references());
}

TEST(Log, AStreamKeepsTheLoggerOfItsStartAndAFailureUnderWay) {
  test::CapturedLog captured;
  {
    log::LogStream stream(log::LogLevel::error, tag);
    EXPECT_EQ(1, captured.live_references()) << "the logger and not the module";
    captured.Behave(test::CapturedLog::Behaviour::no_logger);
    stream << L"late";
  }
  EXPECT_THAT(captured.lines(), ElementsAre("variadic 4 wsc: late"));

  captured.Behave(test::CapturedLog::Behaviour::throws);
  try {
    log::LogStream stream(log::LogLevel::info, tag);
    throw exceptions::error(7, "the first failure");
  } catch (const exceptions::error& failure) {
    EXPECT_EQ(7u, failure.code());
  }
}

// The library and the module are built apart. The compiler keeps a virtual operation as one more than its offset in bytes.
template <typename Member>
std::size_t SlotOf(Member member) {
  std::uintptr_t place;
  std::memcpy(&place, &member, sizeof(place));
  return (place - 1) / sizeof(void*);
}

TEST(Log, TheLibrarysOperationsHaveTheirPlaces) {
  using Logger = log::detail::ILogger;
  const std::size_t slots[] = {SlotOf(&Logger::LogWideVariadic),     SlotOf(&Logger::LogException),
                               SlotOf(&Logger::LogExceptionAtLevel), SlotOf(&Logger::LogWide),
                               SlotOf(&Logger::LogNarrow),           SlotOf(&Logger::OpenLogFile)};
  EXPECT_THAT(slots, ElementsAre(0u, 1u, 2u, 3u, 4u, 5u));
}

}  // namespace
}  // namespace crv
