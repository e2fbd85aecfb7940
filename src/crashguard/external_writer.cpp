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

}  // namespace

std::uint32_t CrashHandler::WriteDumpExternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment,
                                              const wchar_t* dumper_folder) {
  Writer writer(*this);
  if (!writer) return dump_status::kRefused;
  BuildDumpPath(file_name);
  if (!BuildDumperPath(dumper_folder)) {
    Record([] { log::Error(tag, "Process dumper filename was not set"); });
    return dump_status::kNoDumper;
  }
  platform::swprintf_s(command_line_, kCommandLineSize,
                       L"\"%s\" --pid %d --exception_ptr %p --thread_id %d --dump_level %d --dump_file \"%s\" --comment \"%s\"",
                       dumper_, static_cast<int>(GetCurrentProcessId()), static_cast<void*>(exception),
                       static_cast<int>(GetCurrentThreadId()), IsFullDumpHandler() ? 1 : 0, path_, CheckedComment(comment));
  return StartDumperAndWait(writer);
}

// False when no dumper is known.
bool CrashHandler::BuildDumperPath(const wchar_t* dumper_folder) {
  if (!dumper_folder) {
    if (dumper_path_.empty()) return false;
    platform::wcscpy_s(dumper_, kPathSize, dumper_path_.c_str());
    return true;
  }
  platform::wcscpy_s(dumper_, kPathSize, dumper_folder);
  const std::size_t length = std::wcslen(dumper_);
  if (length > 0 && dumper_[length - 1] != L'\\') platform::wcscat_s(dumper_, kPathSize, L"\\");
  platform::wcscat_s(dumper_, kPathSize, kDumperFile);
  return true;
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
  WaitForSingleObject(dumper_process_.hProcess, INFINITE);
  RaiseEvents();
  writer.EndWriting();
  DWORD exit_code = 0;
  if (!GetExitCodeProcess(dumper_process_.hProcess, &exit_code)) {
    const DWORD error = GetLastError();
    Record([&] { log::Error(tag, "Failed to get exit code from dumper process, error: %d", static_cast<int>(error)); });
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
