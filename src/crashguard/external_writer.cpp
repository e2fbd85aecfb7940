// CrashHandler: the writer that starts the suite's external dumper. It takes no memory.
#include <cwchar>
#include <utility>

#include "crashguard/crash_guard.h"
#include "crashguard/crash_handler.h"
#include "crashguard/guard_log.h"
#include "crashguard/writer_turn.h"
#include "platform/bounded_text.h"

namespace crv::crashguard {
namespace {

constexpr std::size_t kLongestComment = 2048;  // characters

// A comment that can stand between quotes on a command line of bounded length.
const wchar_t* CheckedComment(const wchar_t* comment) {
  if (!comment) return L"";
  if (std::wcschr(comment, L'"')) comment = L"Comment contained illegal characters and was removed.";
  if (std::wcslen(comment) > kLongestComment) comment = L"Comment exceeded maximum size and was removed.";
  return comment;
}

void RecordNoExitCode(DWORD error) {
  Record([&] { log::Error(tag, "Failed to get exit code from dumper process, error: %d", static_cast<int>(error)); });
}

}  // namespace

std::uint32_t CrashHandler::WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                              const wchar_t* dumper_folder) {
  Writer writer(*this);
  if (!writer) return dump_status::kRefused;
  if (!BuildDumpPath(file_name)) return dump_status::kNoFile;
  if (!BuildDumperPath(dumper_folder)) {
    Record([] { log::Error(tag, "Process dumper filename was not set"); });
    return dump_status::kNoDumper;
  }
  const bool fits = platform::swprintf_s(
      command_line_, kCommandLineSize,
      L"\"%s\" --pid %d --exception_ptr %p --thread_id %d --dump_level %d --dump_file \"%s\" --comment \"%s\"", dumper_,
      static_cast<int>(GetCurrentProcessId()), static_cast<void*>(exception), static_cast<int>(GetCurrentThreadId()),
      IsFullDumpHandler() ? 1 : 0, path_, CheckedComment(comment));
  return fits ? StartDumperAndWait(writer) : dump_status::kNotStarted;
}

// Puts the separator between; false when the whole does not fit.
bool CrashHandler::AppendName(wchar_t* path, std::size_t size, const wchar_t* name) {
  const std::size_t length = std::wcslen(path);
  if (length > 0 && path[length - 1] != L'\\' && !platform::wcscat_s(path, size, L"\\")) return false;
  return platform::wcscat_s(path, size, name);
}

// False when no dumper is known, or its path does not fit: without the folder it would be one of the current folder.
bool CrashHandler::BuildDumperPath(const wchar_t* dumper_folder) {
  if (!dumper_folder) {
    return !dumper_path_.empty() && platform::wcscpy_s(dumper_, kPathSize, dumper_path_.c_str());
  }
  return platform::wcscpy_s(dumper_, kPathSize, dumper_folder) && AppendName(dumper_, kPathSize, kDumperFile);
}

std::uint32_t CrashHandler::StartDumperAndWait(Writer& writer) {
  startup_ = {};
  startup_.cb = sizeof(startup_);
  dumper_process_ = {};
  if (!CreateProcessW(dumper_, command_line_, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup_,
                      &dumper_process_)) {
    const DWORD error = GetLastError();
    Record(
        [&] { log::Error(tag, L"Failed to start process dumper at '%s' due to error: %d", dumper_, static_cast<int>(error)); });
    return dump_status::kNotStarted;
  }
  if (WaitForSingleObject(dumper_process_.hProcess, INFINITE) != WAIT_OBJECT_0) {
    const DWORD error = GetLastError();
    TerminateProcess(dumper_process_.hProcess, error);  // two writers at once would leave two dumps, one of them half
    RecordNoExitCode(error);
    return dump_status::kNotStarted;
  }
  RaiseEvents();
  writer.EndWriting();
  DWORD exit_code = 0;
  if (!GetExitCodeProcess(dumper_process_.hProcess, &exit_code)) {
    RecordNoExitCode(GetLastError());
    return dump_status::kNotStarted;
  }
  return exit_code;
}

void CrashHandler::CloseDumper() {
  for (HANDLE* const handle : {&dumper_process_.hProcess, &dumper_process_.hThread}) {
    if (*handle) CloseHandle(std::exchange(*handle, nullptr));
  }
}

}  // namespace crv::crashguard
