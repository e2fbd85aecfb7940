#include "crashguard/crash_guard.h"
#include "crashguard/writers_stage.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Writers, InProcessEachAttemptLosesSomething) {
  const struct {
    const char* description;
    std::int32_t divisor;
    std::size_t failures;
    std::uint32_t status;
    std::vector<unsigned> types;
  } rows[] = {
      {"usual", 0, 0, 0, {0x41164}},
      {"after a failure", 0, 1, 0, {0x41164, 0x164}},
      {"after two failures", 0, 2, 0, {0x41164, 0x164, 0x4}},
      {"nothing helps", 0, 3, 6, {0x41164, 0x164, 0x4}},
      {"full memory", 1, 0, 0, {0x41966}},
      {"full memory, nothing helps", 1, 3, 6, {0x41966, 0x166, 0x6}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.description);
    attempts.clear();
    failing_attempts = row.failures;
    handler_->SetFullDumpRatio(row.divisor);
    EXPECT_EQ(row.status, handler_->WriteDumpInternal(Crash(), L"asked.mdmp", L", asked"));
    std::vector<unsigned> types;
    for (const Attempt& attempt : attempts) types.push_back(attempt.type);
    EXPECT_EQ(row.types, types);
    EXPECT_THAT(Files(), SizeIs(row.status == 0 ? 1 : 0)) << "no partial file stays";
    EXPECT_EQ(std::wstring(L"Dumped by CrashHandler, asked").append(1, L'\0'), attempts.back().comment);
    EXPECT_EQ(GetCurrentThreadId(), attempts.back().thread);
    EXPECT_TRUE(DeleteFileW((folder_ + L"\\asked.mdmp").c_str()) || row.status) << "the file is closed";
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Writers, InProcessWithoutExceptionAndUnderWindowsXp) {
  const ImportFake<decltype(GetVersion)> xp("kernel32.dll", "GetVersion", [](auto*) { return DWORD{0x0A280105}; });
  handler_->SetFullDumpRatio(0);
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, nullptr, nullptr));
  ASSERT_THAT(attempts, SizeIs(1));
  EXPECT_EQ(0x41160u, attempts[0].type);
  EXPECT_EQ(0u, attempts[0].thread);
  EXPECT_EQ(std::wstring(L"Dumped by CrashHandler").append(1, L'\0'), attempts[0].comment);
  ASSERT_THAT(Files(), SizeIs(1));
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const std::wstring start = L"unp" + std::to_wstring(now.dwHighDateTime);
  EXPECT_EQ(start, Files()[0].substr(0, start.size()));
}

TEST_F(Writers, FullMemoryIsForOneProcessInSoMany) {
  // The sample key is -512.
  const struct {
    std::int32_t divisor;
    bool full;
  } rows[] = {{0, false}, {1, true}, {256, true}, {512, true}, {-512, true}, {1024, false}, {47, false}};
  EXPECT_EQ(256, handler_->SetFullDumpRatio(5));
  EXPECT_EQ(5, handler_->SetFullDumpRatio(0));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.divisor);
    handler_->SetFullDumpRatio(row.divisor);
    handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
    EXPECT_EQ(row.full ? 0x41966u : 0x41164u, attempts.back().type);
  }
}

TEST_F(Writers, WhoBeganToWriteRaisesTheEventWhateverTheStatus) {
  int events = 0;
  const auto module = AcquireCrashGuard();
  const auto connection = module->ConnectDumpWritten([&] { ++events; });
  EXPECT_EQ(5u, handler_->WriteDumpInternal(nullptr, L"no\\such\\folder.mdmp", nullptr));
  EXPECT_EQ(1, events);
  EXPECT_THAT(attempts, IsEmpty());
  failing_attempts = 3;
  EXPECT_EQ(6u, handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
  EXPECT_EQ(2, events);
  EXPECT_EQ(4u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(7u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, L"Q:\\"));
  EXPECT_EQ(2, events) << "no dumper, none started";
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr)) << "nothing is held";
}

// The external writer, with a system that starts nothing: the command line that it was given.

}  // namespace
}  // namespace crv::crashguard
