#include <gmock/gmock.h>

#include "avmgr/actions.h"
#include "support/captured_log.h"
#include "support/probed_installer.h"
#include "support/thrown.h"

namespace crv::wsc {
namespace {

using testing::ElementsAre;

TEST(Update, EndsWithTheCodeOfTheRunThatFailed) {
  const struct {
    const char *first, *second;
    const wchar_t* settings;
    const char* thrown;
    std::size_t runs;
  } cases[] = {
      {"", "", L"New_1", "nothing", 2},
      {"exit\t3", "", L"New_1", "error 00000003 setup run failed", 1},
      {"", "exit\t0x80004005", L"New_1", "error 80004005 setup run failed", 2},
      {"", "", L"Missing", "error ffffffff update program failed", 1},
      {"", "", L"", "error ffffffff update program failed", 1},  // the run that should have written the settings
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const test::ProbedInstaller suite;
    test::CapturedLog log;
    suite.Script(1, c.first);
    suite.Script(2, c.second);
    suite.WriteSettings(c.settings);
    EXPECT_EQ(c.thrown, test::Thrown(update));
    EXPECT_EQ(c.runs, suite.Runs().size());
    EXPECT_THAT(log.lines(), ElementsAre("wide 1 wsc: Updating AV."));
  }
}

TEST(Update, WithoutAnInstallationFails) {
  const test::RedirectedHive nothing;
  test::CapturedLog log;
  EXPECT_EQ("error ffffffff update program failed", test::Thrown(update));
}

}  // namespace
}  // namespace crv::wsc
