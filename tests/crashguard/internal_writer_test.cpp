// The writer that works in the crashing process.
#include <utility>

#include "crashguard/stage.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Writers, InProcessEachAttemptLosesSomething) {
  const ImportFake<decltype(GetVersion)> seven("kernel32.dll", "GetVersion", [](auto*) { return DWORD{0x1DB10106}; });
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
      // The sample key is -512.
      {"a divisor of the key", 512, 0, 0, {0x41966}},
      {"a negative one", -512, 0, 0, {0x41966}},
      {"a multiple", 1024, 0, 0, {0x41164}},
      {"no divisor", 47, 0, 0, {0x41164}},
  };
  EXPECT_EQ(256, handler_->SetFullDumpRatio(5));
  EXPECT_EQ(5, handler_->SetFullDumpRatio(256));
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
    std::error_code no_file;
    const std::uintmax_t size = std::filesystem::file_size(folder_ + L"\\asked.mdmp", no_file);
    EXPECT_EQ(row.status == 0 ? 4u : static_cast<std::uintmax_t>(-1), size) << "of the last attempt alone";
    EXPECT_EQ(std::wstring(L"Dumped by CrashHandler, asked").append(1, L'\0'), attempts.back().comment);
    EXPECT_EQ(GetCurrentThreadId(), attempts.back().thread);
    EXPECT_TRUE(DeleteFileW((folder_ + L"\\asked.mdmp").c_str()) || row.status) << "the file is closed";
  }

  const ImportFake<decltype(GetVersion)> xp("kernel32.dll", "GetVersion", [](auto*) { return DWORD{0x0A280105}; });
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, nullptr, nullptr));
  EXPECT_EQ(0x41160u, attempts.back().type);
  EXPECT_EQ(0u, attempts.back().thread) << "without an exception";
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  EXPECT_THAT(Files(), ElementsAre(testing::StartsWith(L"unp" + std::to_wstring(now.dwHighDateTime))));
  const std::wstring comment(5000, L'c');
  handler_->WriteDumpInternal(nullptr, nullptr, comment.c_str());
  EXPECT_EQ((L"Dumped by CrashHandler" + comment).append(1, L'\0'), attempts.back().comment);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Writers, InProcessTheUsualCommentNeedsNoHeap) {
  bool none = false;
  const ImportFake<void*(std::size_t)> heap(
      "msvcrt.dll", "malloc", [&](auto* real, std::size_t size) { return std::exchange(none, false) ? nullptr : real(size); });
  const ImportFake<decltype(CreateFileW)> file("kernel32.dll", "CreateFileW", [&](auto* real, auto... arguments) {
    none = false;  // what writes the dump takes what it needs
    return real(arguments...);
  });
  none = true;
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, nullptr, L"Cause: VectoredExceptionHandler"));
}

TEST_F(Writers, WithoutAUuidNotEveryProcessDumpsItsWholeMemory) {
  const ImportFake<decltype(GetVersion)> seven("kernel32.dll", "GetVersion", [](auto*) { return DWORD{0x1DB10106}; });
  const ImportFake<decltype(UuidCreate)> uuid("rpcrt4.dll", "UuidCreate",
                                              [](auto*, UUID*) { return RPC_STATUS{RPC_S_UUID_NO_ADDRESS}; });
  DWORD ticks = 256;
  const ImportFake<decltype(QueryPerformanceCounter)> counter("kernel32.dll", "QueryPerformanceCounter",
                                                              [&](auto*, LARGE_INTEGER* now) {
                                                                now->QuadPart = ticks++;
                                                                return TRUE;
                                                              });
  for (const unsigned type : {0x41966u, 0x41164u}) {
    const auto handler = MakeHandler();
    handler->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr);
    EXPECT_EQ(type, attempts.back().type);
  }
}

TEST_F(Writers, WithoutSystemLibrariesThereIsADump) {
  const ImportFake<decltype(GetSystemDirectoryW)> none("kernel32.dll", "GetSystemDirectoryW", [](auto...) { return 0u; });
  const auto handler = MakeHandler();
  EXPECT_EQ(0u, handler->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
  EXPECT_EQ(0u, handler->WriteDumpInternal(nullptr, nullptr, nullptr));
  EXPECT_THAT(Files(), testing::UnorderedElementsAre(L"asked.mdmp", testing::StartsWith(L"unp")));
  handler->SetDumpFolder(std::wstring(250, L'x'));
  EXPECT_EQ(5u, handler->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
}

}  // namespace
}  // namespace crv::crashguard
