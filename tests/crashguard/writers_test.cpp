// What both writers share: who may write, where, how often, and whom they tell.
#include <atomic>
#include <thread>

#include "crashguard/crash_guard.h"
#include "crashguard/stage.h"
#include "mi/module_counts.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(Writers, WriteDumpAsksBeforeItWrites) {
  EXPECT_EQ(2u, handler_->WriteDump(nullptr, false, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: CrashHandler not installed."));
  ASSERT_EQ(1u, handler_->Install(folder_, folder_, 0, 1));
  log_.clear();
  EXPECT_EQ(0u, handler_->WriteDump(Crash(), true, L", why"));
  EXPECT_THAT(attempts.back().comment, testing::StartsWith(L"Dumped by CrashHandler, why"));
  EXPECT_EQ(8u, handler_->WriteDump(Crash(), true, nullptr));
  EXPECT_EQ(0u, handler_->WriteDump(Crash(), false, nullptr)) << "the limit is for those that count";
  failing_attempts = attempts.size() + 3;
  EXPECT_EQ(6u, handler_->WriteDump(nullptr, false, nullptr));
  EXPECT_THAT(log_.lines(),
              ElementsAre(HasSubstr("wide 4 crashguard: Failed to start process dumper at '"),
                          "narrow 5 crashguard: Minidump generation failed with error: 7",
                          "narrow 2 crashguard: Minidump created successfully. Exception code is: c0000005",
                          "narrow 2 crashguard: CrashHandler dump limit reached.", HasSubstr("due to error: "),
                          HasSubstr("error: 7"), HasSubstr("created"), HasSubstr("due to error: "), HasSubstr("error: 7")))
      << "and no success at last";

  handler_->Uninstall();
  handler_->Install(folder_, folder_, 0, 2);
  failing_attempts = 0;
  log_.clear();
  EXCEPTION_POINTERS* const crash = Crash();
  EXPECT_EQ(0u, handler_->WriteDump(crash, false, nullptr));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(8u, handler_->WriteDump(crash, true, nullptr));
  const auto same = HasSubstr("narrow 2 crashguard: Exception was already dumped, ignoring...");
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("error: "), HasSubstr("error: "), HasSubstr("created"), same, same,
                                        HasSubstr("limit reached")))
      << "a new install counts anew, and what is ignored counts";
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

// What does not fit must not end up in the current folder.
TEST_F(Writers, PathsThatDoNotFitAreNotUsed) {
  int started = 0;
  const ImportFake<decltype(CreateProcessW)> start("kernel32.dll", "CreateProcessW",
                                                   [&](auto*, auto...) { return ++started, FALSE; });
  const std::wstring fits = L"D:" + std::wstring(245, L'x'), longest = fits + L"x";  // and "\\cvDump32.exe" behind it
  EXPECT_EQ(7u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, fits.c_str()));
  EXPECT_EQ(1, started);
  log_.clear();
  for (const std::size_t length : {259, 260, 300}) {
    EXPECT_EQ(4u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, std::wstring(length, L'x').c_str()));
  }
  EXPECT_THAT(log_.lines(), testing::Each("narrow 4 crashguard: Process dumper filename was not set"));
  handler_->Install(folder_, longest + L"xxxxx", 0, 0);
  EXPECT_EQ(4u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, nullptr));
  const std::wstring name(200, L'n');
  handler_->SetDumpFolder(fits);
  EXPECT_EQ(5u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, L"D:\\"));
  for (const wchar_t* const file : {static_cast<const wchar_t*>(nullptr), name.c_str()}) {
    EXPECT_EQ(5u, handler_->WriteDumpInternal(nullptr, file, nullptr));
  }
  handler_->SetDumpFolder(std::wstring(300, L'x'));
  EXPECT_EQ(5u, handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
  EXPECT_EQ(1, started);
  EXPECT_THAT(attempts, IsEmpty());
}

// The writers and what they read belong to one thread at a time; others wait.
TEST_F(Writers, OneThreadAtATime) {
  const auto module = AcquireCrashGuard();
  std::thread others[3];
  std::atomic<int> through = 0;
  std::atomic<bool> asked = false, writing = false;
  std::uint32_t status = 99;
  // An install that has set its dump folder and is about to set its dumper.
  const ImportFake<decltype(GetFileAttributesW)> folder("kernel32.dll", "GetFileAttributesW", [&](auto* real, LPCWSTR path) {
    asked = true;
    while (!writing) Sleep(1);
    return real(path);
  });
  others[2] = std::thread([&] { handler_->Install(folder_, folder_, 0, 0), ++through; });
  while (!asked) Sleep(1);
  {
    const auto connection = module->ConnectDumpWritten([&] {
      if (others[0].joinable()) return;
      others[0] = std::thread([&] { status = handler_->WriteDumpInternal(nullptr, L"second.mdmp", nullptr), ++through; });
      others[1] = std::thread([&] { handler_->SetDumpFolder(folder_), ++through; });
      writing = true;
      Sleep(100);
      EXPECT_EQ(0, through);
    });
    EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, L"first.mdmp", nullptr));
    for (std::thread& other : others) other.join();
  }
  EXPECT_EQ(0u, status);
  EXPECT_EQ(3, through);
}

// Who began to write raises the event whatever comes of it; the fatal one only after an exception that nobody handled.
TEST_F(Writers, RaiseTheirEvents) {
  std::string events;
  const auto module = AcquireCrashGuard();
  const auto written = module->ConnectDumpWritten([&] { events += 'w'; });
  auto fatal = module->ConnectFatalDumpWritten([&] { events += 'f'; });
  EXPECT_EQ(4u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: Process dumper filename was not set"));
  EXPECT_EQ(7u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, L"Q:\\"));
  EXPECT_EQ("", events) << "no dumper, none started";
  EXPECT_EQ(5u, handler_->WriteDumpInternal(nullptr, L"no\\such\\folder.mdmp", nullptr));
  EXPECT_EQ("w", events);
  EXPECT_THAT(attempts, IsEmpty());
  failing_attempts = 3;
  EXPECT_EQ(6u, handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
  EXPECT_EQ("ww", events);
  handler_->SetFatal();
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr)) << "nothing is held";
  EXPECT_EQ("wwwf", events);
  fatal.reset();
  handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
  EXPECT_EQ("wwwfw", events);
  EXPECT_EQ(1u, mi::LiveCounts().modules);
  EXPECT_EQ(1u, mi::LiveCounts().exported_objects);
}

}  // namespace
}  // namespace crv::crashguard
