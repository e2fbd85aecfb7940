#include "crashguard/user_crash.h"

#include <gmock/gmock.h>

#include "support/captured_log.h"
#include "support/import_fake.h"

namespace crv::crashguard {
namespace {

TEST(CrashAfter, SleepsBeforeItCrashes) {
  const test::CapturedLog log;
  static DWORD slept = 0;
  const test::ImportFake<decltype(Sleep)> sleep("kernel32.dll", "Sleep", [](auto*, DWORD time) {
    slept = time;
    ExitThread(0);  // before the crash
  });
  const HANDLE thread = CrashAfter(300);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, INFINITE));
  CloseHandle(thread);
  EXPECT_EQ(300u, slept);
  EXPECT_THAT(log.lines(), testing::ElementsAre("narrow 3 crashguard: User-initiated crash in 300 ms"));
}

}  // namespace
}  // namespace crv::crashguard
