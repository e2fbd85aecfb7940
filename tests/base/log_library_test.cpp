// The front over a log library that is a DLL of its own, with a C++ runtime of its own: a program apart, since the other tests
// carry a log library inside.
#include <gtest/gtest.h>

#include <stdexcept>

#include "base/exceptions.h"
#include "base/log.h"
#include "log/control.h"
#include "support/redirected_hive.h"

namespace crv {
namespace {

const log::Tag tag("wsc");

TEST(LogLibrary, AStreamThatFailsLeavesAFailureUnderWayAlone) {
  const test::RedirectedHive hive;  // the library finds its script here
  standins::ScriptLog({.throw_from = standins::kLogMessage});
  try {
    log::LogStream stream(log::LogLevel::info, tag);
    throw exceptions::error(7, "the first failure");
  } catch (const exceptions::error& failure) {
    EXPECT_EQ(7u, failure.code());
  }
  EXPECT_THROW(log::LogStream(log::LogLevel::info, tag), std::exception) << "without another failure the library's comes through";
}

}  // namespace
}  // namespace crv
