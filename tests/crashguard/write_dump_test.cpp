#include <thread>

#include "crashguard/crash_guard.h"
#include "crashguard/writers_stage.h"
#include "mi/module_counts.h"

namespace crv::crashguard {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Writers, WriteDumpAsksBeforeItWrites) {
  EXPECT_EQ(2u, handler_->WriteDump(nullptr, false, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: CrashHandler not installed."));
  ASSERT_EQ(1u, handler_->Install(folder_, folder_, 0, 2));
  log_.clear();
  EXCEPTION_POINTERS* const crash = Crash();
  EXPECT_EQ(0u, handler_->WriteDump(crash, true, L", why"));
  EXPECT_THAT(attempts.back().comment, testing::StartsWith(L"Dumped by CrashHandler, why"));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("wide 4 crashguard: Failed to start process dumper at '"),
                                        "narrow 5 crashguard: Minidump generation failed with error: 7",
                                        "narrow 2 crashguard: Minidump created successfully. Exception code is: c0000005"));
  log_.clear();
  EXPECT_EQ(8u, handler_->WriteDump(crash, true, nullptr)) << "and counts";
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 2 crashguard: Exception was already dumped, ignoring..."));
  log_.clear();
  EXPECT_EQ(8u, handler_->WriteDump(Crash(), true, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 2 crashguard: CrashHandler dump limit reached."));
  EXPECT_EQ(0u, handler_->WriteDump(Crash(), false, nullptr)) << "the limit is for those that count";
  log_.clear();
  failing_attempts = attempts.size() + 3;
  EXPECT_EQ(6u, handler_->WriteDump(nullptr, false, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("due to error: "), HasSubstr("error: 7"))) << "and no success";
  handler_->Uninstall();
  handler_->Install(folder_, folder_, 0, 1);
  EXPECT_EQ(0u, handler_->WriteDump(Crash(), true, nullptr)) << "a new install counts anew";
}

// A writer that ends in a structured exception gives the lock back: another thread can write.
TEST_F(Writers, AStructuredExceptionInAWriterIsStatus1) {
  ASSERT_EQ(1u, handler_->Install(folder_, folder_, 0, 2));
  log_.clear();
  const auto* const nowhere = reinterpret_cast<const wchar_t*>(1);
  EXPECT_EQ(1u, handler_->WriteDump(nullptr, false, nowhere));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 5 crashguard: Failed to write minidump, SEH exception encountered"));
  failing_attempts = kFault;
  EXPECT_EQ(1u, handler_->WriteDump(nullptr, false, nullptr));
  EXPECT_THAT(Files(), IsEmpty()) << "no partial file stays";
  failing_attempts = 0;
  std::uint32_t status = 99;
  std::thread([&] { status = handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr); }).join();
  EXPECT_EQ(0u, status);
}

TEST_F(Writers, OnlyFatalDumpsRaiseTheFatalEvent) {
  std::string events;
  const auto module = AcquireCrashGuard();
  const auto written = module->ConnectDumpWritten([&] { events += 'w'; });
  auto fatal = module->ConnectFatalDumpWritten([&] { events += 'f'; });
  handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
  EXPECT_EQ("w", events);
  handler_->SetFatal();
  handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
  EXPECT_EQ("wwf", events);
  fatal.reset();
  handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
  EXPECT_EQ("wwfw", events);
  EXPECT_EQ(1u, mi::LiveCounts().modules);
  EXPECT_EQ(1u, mi::LiveCounts().exported_objects);
}

}  // namespace
}  // namespace crv::crashguard
