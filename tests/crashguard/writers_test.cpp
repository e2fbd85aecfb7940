#include <atomic>
#include <thread>
#include <utility>

#include "crashguard/crash_guard.h"
#include "crashguard/stage.h"
#include "mi/module_counts.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

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

TEST_F(Writers, TheDumperLearnsEverythingFromItsCommandLine) {
  const std::wstring longest(2048, L'c'), quoted = longest + L'"', too_long = longest + L'c';
  const struct {
    const wchar_t* comment;
    const wchar_t* dumper_folder;
    const wchar_t* dumper;
    const wchar_t* received;
  } rows[] = {
      {L"a comment, with 'all' %s", L"D:\\suite", L"D:\\suite\\cvDump32.exe", L"a comment, with 'all' %s"},
      {nullptr, L"D:\\", L"D:\\cvDump32.exe", L""},
      {quoted.c_str(), L"", L"cvDump32.exe", L"Comment contained illegal characters and was removed."},
      {longest.c_str(), L"D:", L"D:\\cvDump32.exe", longest.c_str()},
      {too_long.c_str(), L"D:", L"D:\\cvDump32.exe", L"Comment exceeded maximum size and was removed."},
  };
  std::wstring application, command_line;
  const ImportFake<decltype(CreateProcessW)> fake(
      "kernel32.dll", "CreateProcessW",
      [&](auto*, LPCWSTR name, LPWSTR line, auto*, auto*, BOOL inherit, DWORD flags, void* environment, LPCWSTR current,
          STARTUPINFOW* startup, PROCESS_INFORMATION*) {
        application = name;
        command_line = line;
        EXPECT_FALSE(inherit);
        EXPECT_EQ(0x08000000u, flags);
        EXPECT_EQ(nullptr, environment);
        EXPECT_EQ(nullptr, current);
        EXPECT_EQ(68u, startup->cb);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
  for (const auto& row : rows) {
    SCOPED_TRACE(row.dumper);
    const bool first = &row == rows;
    handler_->SetFullDumpRatio(first ? 1 : 0);
    EXCEPTION_POINTERS* const crash = first ? nullptr : Crash();
    EXPECT_EQ(7u, handler_->WriteDumpExternal(crash, L"asked.mdmp", row.comment, row.dumper_folder));
    wchar_t middle[256];
    _snwprintf(middle, 256, L"\" --pid %d --exception_ptr %08X --thread_id %d --dump_level %d --dump_file \"",
               static_cast<int>(GetCurrentProcessId()), static_cast<unsigned>(reinterpret_cast<UINT_PTR>(crash)),
               static_cast<int>(GetCurrentThreadId()), first);
    EXPECT_EQ(row.dumper, application);
    EXPECT_EQ(L"\"" + application + middle + folder_ + L"\\asked.mdmp\" --comment \"" + row.received + L"\"", command_line);
  }
  EXPECT_EQ("wide 4 crashguard: Failed to start process dumper at 'D:\\suite\\cvDump32.exe' due to error: 5", log_.lines()[0]);
}

TEST_F(Writers, ADumperWhoseEndCannotBeReadIsStatus7) {
  int events = 0;
  bool faults = false;
  const auto module = AcquireCrashGuard();
  const auto connection = module->ConnectDumpWritten([&] {
    ++events;
    if (faults) RaiseException(0, 0, 0, nullptr);
    EXPECT_EQ(8u, handler_->WriteDumpInternal(nullptr, nullptr, nullptr)) << "still writing";
  });
  std::vector<HANDLE> open;
  const ImportFake<decltype(CreateProcessW)> start("kernel32.dll", "CreateProcessW", [&](auto*, auto... arguments) {
    PROCESS_INFORMATION& information = *std::get<9>(std::tie(arguments...));
    EXPECT_EQ(0u, information.dwProcessId);
    information.dwProcessId = 77;
    information.hProcess = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    information.hThread = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    open = {information.hProcess, information.hThread};
    return TRUE;
  });
  const ImportFake<decltype(GetExitCodeProcess)> end("kernel32.dll", "GetExitCodeProcess", [](auto*, auto...) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  });
  EXPECT_EQ(7u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, L"D:\\"));
  EXPECT_EQ(1, events);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Attempted to WriteDump while another operation is already in progress"),
                                        "narrow 4 crashguard: Failed to get exit code from dumper process, error: 6"));
  for (const HANDLE handle : open) EXPECT_FALSE(SetEvent(handle)) << "left open";
  handler_->Install(folder_, folder_, 0, 0);
  const long references = module.use_count();
  faults = true;
  EXPECT_EQ(1u, handler_->WriteDump(nullptr, false, nullptr));
  for (const HANDLE handle : open) EXPECT_FALSE(SetEvent(handle)) << "left open after a fault";
  EXPECT_EQ(references, module.use_count());

  faults = false;
  log_.clear();
  std::vector<HANDLE> ended;
  const ImportFake<decltype(TerminateProcess)> terminate(
      "kernel32.dll", "TerminateProcess", [&](auto*, HANDLE process, UINT) { return ended.push_back(process), TRUE; });
  const ImportFake<decltype(WaitForSingleObject)> wait("kernel32.dll", "WaitForSingleObject", [](auto*, HANDLE, DWORD time) {
    EXPECT_EQ(INFINITE, time);
    SetLastError(ERROR_ACCESS_DENIED);
    return WAIT_FAILED;
  });
  EXPECT_EQ(7u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, nullptr));
  EXPECT_THAT(ended, ElementsAre(open[0])) << "a dumper that nobody waits for is ended";
  EXPECT_EQ(2, events);
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: Failed to get exit code from dumper process, error: 5"));
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
