// CrashHandler: whether a dump is written at all, and the writer that works in-process.
#include <shlobj.h>
#include <shlwapi.h>

#include <cstring>
#include <utility>

#include "crashguard/crash_guard_module.h"
#include "crashguard/dump_types.h"
#include "crashguard/guard_log.h"
#include "crashguard/writer_turn.h"
#include "platform/bounded_text.h"
#include "platform/structured_guard.h"

namespace crv::crashguard {
namespace {

CONTEXT last_dumped_context = {};  // of the whole process; read and written without a lock

unsigned ExceptionCode(const EXCEPTION_POINTERS* exception) {
  return exception && exception->ExceptionRecord ? exception->ExceptionRecord->ExceptionCode : 0;
}

}  // namespace

std::uint32_t CrashHandler::WriteDump(EXCEPTION_POINTERS* exception, bool counted, const wchar_t* comment) noexcept {
  if (!installed_) {
    Record([] { log::Error(tag, "CrashHandler not installed."); });
    return dump_status::kNotInstalled;
  }
  if (counted && dumps_left_.fetch_sub(1) <= 0) {
    Record([] { log::Debug(tag, "CrashHandler dump limit reached."); });
    return dump_status::kRefused;
  }
  if (exception && exception->ContextRecord) {
    if (std::memcmp(exception->ContextRecord, &last_dumped_context, sizeof(CONTEXT)) == 0) {
      Record([] { log::Debug(tag, "Exception was already dumped, ignoring..."); });
      return dump_status::kRefused;
    }
    last_dumped_context = *exception->ContextRecord;
  }

  const LONG depth = LockDepth();
  std::uint32_t status = dump_status::kWritten;
  bool failed = false;
  const auto write = [&] {
    try {
      status = WriteDumpExternal(exception, nullptr, comment, nullptr);
      if (status != dump_status::kWritten) {
        Record([&] { log::Critical(tag, "Minidump generation failed with error: %d", static_cast<int>(status)); });
        status = WriteDumpInternal(exception, nullptr, comment);
      }
      if (status != dump_status::kWritten) return;
      Record([&] { log::Debug(tag, "Minidump created successfully. Exception code is: %x", ExceptionCode(exception)); });
    } catch (...) {  // a subscriber's; with Microsoft's runtime it is a structured exception, too
      failed = true;
    }
  };
  if (platform::Guarded(write) != 0) {
    AbandonWriters(depth);
    failed = true;
  }
  if (!failed) return status;
  Record([] { log::Critical(tag, "Failed to write minidump, SEH exception encountered"); });
  return dump_status::kException;
}

// How many times this thread holds the writers' lock.
LONG CrashHandler::LockDepth() const {
  const bool held = reinterpret_cast<UINT_PTR>(lock_.OwningThread) == GetCurrentThreadId();
  return held ? lock_.RecursionCount : 0;
}

// Gives back what a writer held that a structured exception ended on this thread; `depth` is that of before. A writer that was
// called from within another one holds nothing but the lock.
void CrashHandler::AbandonWriters(LONG depth) {
  if (LockDepth() == depth) return;
  if (depth == 0) {
    if (dump_file_ != INVALID_HANDLE_VALUE) {
      CloseHandle(std::exchange(dump_file_, INVALID_HANDLE_VALUE));
      DeleteFileW(path_);
    }
    CloseDumper();
    writing_ = false;
  }
  while (LockDepth() > depth) LeaveCriticalSection(&lock_);
}

bool CrashHandler::IsFullDumpHandler() const {
  const std::int64_t divisor = full_dump_divisor_;
  return divisor != 0 && sample_key_ % divisor == 0;
}

void CrashHandler::BuildDumpPath(const wchar_t* file_name) {
  path_[0] = L'\0';
  if (file_name) {
    platform::wcscpy_s(path_, kPathLimit, dump_folder_.c_str());
    PathAppendW(path_, file_name);
  } else {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    PathAppendW(path_, dump_folder_.c_str());
    platform::swprintf_s(file_name_, kPathLimit, L"unp%u%u.mdmp", now.dwHighDateTime, now.dwLowDateTime);
    PathAppendW(path_, file_name_);
  }
  SHCreateDirectory(nullptr, dump_folder_.c_str());
}

void CrashHandler::RaiseEvents() {
  AcquireCrashGuardModule()->RaiseDumpWritten();
  if (fatal_) AcquireCrashGuardModule()->RaiseFatalDumpWritten();
}

std::uint32_t CrashHandler::WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment) {
  Writer writer(*this);
  if (!writer) return dump_status::kRefused;
  BuildDumpPath(file_name);
  const std::uint32_t status = WriteDumpFile(exception, comment);
  RaiseEvents();
  return status;
}

std::uint32_t CrashHandler::WriteDumpFile(EXCEPTION_POINTERS* exception, const wchar_t* comment) {
  std::wstring text = L"Dumped by CrashHandler";
  if (comment) text += comment;
  MINIDUMP_USER_STREAM stream = {CommentStreamW, static_cast<ULONG>((text.size() + 1) * sizeof(wchar_t)), text.data()};
  MINIDUMP_USER_STREAM_INFORMATION streams = {1, &stream};
  MINIDUMP_EXCEPTION_INFORMATION information = {GetCurrentThreadId(), exception, FALSE};

  dump_file_ = CreateFileW(path_, GENERIC_ALL, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (dump_file_ == INVALID_HANDLE_VALUE) return dump_status::kNoFile;

  unsigned type = DumpType(GetVersion(), IsFullDumpHandler());
  const auto attempt = [&] {
    return dump_library_.write()(GetCurrentProcess(), GetCurrentProcessId(), dump_file_, static_cast<MINIDUMP_TYPE>(type),
                                 exception ? &information : nullptr, &streams, nullptr);
  };
  bool written = attempt();
  for (const unsigned lost : kLostByAttempt) {
    if (written) break;
    type &= ~lost;
    written = attempt();
  }
  CloseHandle(std::exchange(dump_file_, INVALID_HANDLE_VALUE));
  if (written) return dump_status::kWritten;
  DeleteFileW(path_);
  return dump_status::kWriteFailed;
}

}  // namespace crv::crashguard
