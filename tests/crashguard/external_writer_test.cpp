#include "crashguard/crash_guard.h"
#include "crashguard/writers_stage.h"

namespace crv::crashguard {
namespace {

using test::ImportFake;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(Writers, TheDumperLearnsEverythingFromItsCommandLine) {
  const std::wstring longest(2048, L'c'), quoted = longest + L'"';
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
  handler_->SetFullDumpRatio(0);
  EXCEPTION_POINTERS* const crash = Crash();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.dumper);
    EXPECT_EQ(7u, handler_->WriteDumpExternal(crash, L"asked.mdmp", row.comment, row.dumper_folder));
    wchar_t middle[256];
    _snwprintf(middle, 256, L"\" --pid %d --exception_ptr %p --thread_id %d --dump_level 0 --dump_file \"",
               static_cast<int>(GetCurrentProcessId()), static_cast<void*>(crash), static_cast<int>(GetCurrentThreadId()));
    EXPECT_EQ(row.dumper, application);
    EXPECT_EQ(L"\"" + application + middle + folder_ + L"\\asked.mdmp\" --comment \"" + row.received + L"\"", command_line);
  }
  EXPECT_EQ("wide 4 crashguard: Failed to start process dumper at 'D:\\suite\\cvDump32.exe' due to error: 5", log_.lines()[0]);

  handler_->SetFullDumpRatio(1);
  handler_->WriteDumpExternal(nullptr, nullptr, (longest + L"c").c_str(), L"D:\\");
  EXPECT_NE(std::wstring::npos, command_line.find(L"--exception_ptr 00000000 "));
  EXPECT_NE(std::wstring::npos, command_line.find(L" --dump_level 1 "));
  EXPECT_NE(std::wstring::npos, command_line.find(L"\"Comment exceeded maximum size and was removed.\""));
}

TEST_F(Writers, WithoutAnyDumperFolderThereIsNoDumper) {
  EXPECT_EQ(4u, handler_->WriteDumpExternal(nullptr, nullptr, nullptr, nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre("narrow 4 crashguard: Process dumper filename was not set"));
  EXPECT_EQ(0u, handler_->WriteDumpInternal(nullptr, nullptr, nullptr)) << "nothing is held";
}

TEST_F(Writers, ADumperWhoseEndCannotBeReadIsStatus7) {
  int events = 0;
  const auto module = AcquireCrashGuard();
  const auto connection = module->ConnectDumpWritten([&] {
    if (++events > 1) RaiseException(0x99, 0, 0, nullptr);
    EXPECT_EQ(8u, handler_->WriteDumpInternal(nullptr, nullptr, nullptr)) << "still writing";
  });
  std::vector<HANDLE> open;
  const ImportFake<decltype(CreateProcessW)> start("kernel32.dll", "CreateProcessW", [&](auto*, auto... arguments) {
    PROCESS_INFORMATION& information = *std::get<9>(std::tie(arguments...));
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
  EXPECT_EQ(1u, handler_->WriteDump(nullptr, false, nullptr));
  for (const HANDLE handle : open) EXPECT_FALSE(SetEvent(handle)) << "left open after a fault";
}

}  // namespace
}  // namespace crv::crashguard
