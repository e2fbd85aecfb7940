// The writer that starts the suite's dumper.
#include <tuple>

#include "crashguard/crash_guard.h"
#include "crashguard/stage.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;
using testing::HasSubstr;

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

}  // namespace
}  // namespace crv::crashguard
