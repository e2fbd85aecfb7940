// CrashHandler: whether a dump is written at all, and the writer that works in-process.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <utility>

#include "crashguard/crash_guard_module.h"
#include "crashguard/dump_types.h"
#include "crashguard/guard_log.h"
#include "crashguard/thrown_type.h"
#include "crashguard/writer_turn.h"
#include "platform/bounded_text.h"
#include "platform/spare_stack.h"
#include "platform/structured_guard.h"
#include "platform/throw_record.h"

namespace crv::crashguard {
namespace {

CONTEXT last_dumped_context = {};  // of the whole process; read and written without a lock

constexpr wchar_t kCommentStart[] = L"Dumped by CrashHandler";

unsigned ExceptionCode(const EXCEPTION_POINTERS* exception) {
  return exception && exception->ExceptionRecord ? exception->ExceptionRecord->ExceptionCode : 0;
}

}  // namespace

std::uint32_t CrashHandler::WriteDump(EXCEPTION_POINTERS* exception, bool counted, const wchar_t* comment) noexcept {
  // The object of a fatal error is the same at its throw and when it comes back uncaught. Its place may have been another one's.
  const EXCEPTION_RECORD* const record = exception ? exception->ExceptionRecord : nullptr;
  const ULONG_PTR fatal = record && IsFatalException(*record) ? record->ExceptionInformation[platform::kObject] : 0;
  const bool again = fatal && IsUncaughtAgain(*record);
  if (fatal && !again) ForgetThrow(fatal);
  if (!installed_) {
    Record([] { log::Error(tag, "CrashHandler not installed."); });
    return dump_status::kNotInstalled;
  }
  if (counted && dumps_left_.fetch_sub(1) <= 0) {
    Record([] { log::Debug(tag, "CrashHandler dump limit reached."); });
    return dump_status::kRefused;
  }
  if (exception && IsDumped(*exception, again ? fatal : 0)) {
    Record([] { log::Debug(tag, "Exception was already dumped, ignoring..."); });
    return dump_status::kRefused;
  }
  if (exception && exception->ContextRecord) last_dumped_context = *exception->ContextRecord;
  const std::uint32_t status = WriteGuarded(exception, comment);
  if (fatal && status == dump_status::kWritten) RememberThrow(fatal);
  return status;
}

bool CrashHandler::IsDumped(const EXCEPTION_POINTERS& exception, ULONG_PTR fatal_again) const {
  if (fatal_again && std::find(known_throws_.begin(), known_throws_.end(), fatal_again) != known_throws_.end()) return true;
  return exception.ContextRecord && std::memcmp(exception.ContextRecord, &last_dumped_context, sizeof(CONTEXT)) == 0;
}

void CrashHandler::ForgetThrow(ULONG_PTR object) {
  for (std::atomic<ULONG_PTR>& known : known_throws_) {
    ULONG_PTR expected = object;
    known.compare_exchange_strong(expected, 0);
  }
}

void CrashHandler::RememberThrow(ULONG_PTR object) { known_throws_[next_known_throw_++ % kKnownThrows] = object; }

std::uint32_t CrashHandler::WriteGuarded(EXCEPTION_POINTERS* exception, const wchar_t* comment) {
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
  if (platform::Guarded(write)) {
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
    raising_.reset();
    writing_ = false;
  }
  while (LockDepth() > depth) LeaveCriticalSection(&lock_);
}

bool CrashHandler::IsFullDumpHandler() const {
  const std::int64_t divisor = full_dump_divisor_;
  return divisor != 0 && sample_key_ % divisor == 0;
}

// A crash leaves its dump where PathAppendW could not be bound, too.
bool CrashHandler::AppendToDumpPath(const wchar_t* name) {
  return system_.path_append ? system_.path_append(path_, name) != FALSE : AppendName(path_, kPathLimit, name);
}

// False when the folder and the name do not fit: without the folder a dump would land in whatever folder is the current one.
bool CrashHandler::BuildDumpPath(const wchar_t* file_name) {
  path_[0] = L'\0';
  if (file_name) {
    if (!platform::wcscpy_s(path_, kPathLimit, dump_folder_.c_str()) || !AppendToDumpPath(file_name)) return false;
  } else {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    if (!platform::swprintf_s(file_name_, kPathLimit, L"unp%u%u.mdmp", now.dwHighDateTime, now.dwLowDateTime)) return false;
    if (!AppendToDumpPath(dump_folder_.c_str()) || !AppendToDumpPath(file_name_)) return false;
  }
  if (system_.create_folder) system_.create_folder(nullptr, dump_folder_.c_str());
  return true;
}

// The module must not end while its handlers are called, nor for ever be kept by one that faults.
void CrashHandler::RaiseEvents() {
  raising_ = FindCrashGuardModule();
  if (!raising_) return;
  const platform::KnownSpareStack stack;
  const auto release = [](CrashHandler* handler) { handler->raising_.reset(); };
  const std::unique_ptr<CrashHandler, decltype(release)> end(this, release);
  raising_->RaiseDumpWritten();
  if (fatal_) raising_->RaiseFatalDumpWritten();
}

std::uint32_t CrashHandler::WriteDumpInternal(EXCEPTION_POINTERS* exception, const wchar_t* file_name, const wchar_t* comment) {
  Writer writer(*this);
  if (!writer) return dump_status::kRefused;
  const std::uint32_t status = BuildDumpPath(file_name) ? WriteDumpFile(exception, comment) : dump_status::kNoFile;
  RaiseEvents();
  return status;
}

// Only a comment that is longer than any dumper would take needs the heap.
std::uint32_t CrashHandler::WriteDumpFile(EXCEPTION_POINTERS* exception, const wchar_t* comment) {
  if (!comment) comment = L"";
  if (platform::wcscpy_s(comment_, kCommentSize, kCommentStart) && platform::wcscat_s(comment_, kCommentSize, comment)) {
    return WriteDumpFileWith(exception, comment_);
  }
  std::wstring text = kCommentStart;
  text += comment;
  return WriteDumpFileWith(exception, text.data());
}

std::uint32_t CrashHandler::WriteDumpFileWith(EXCEPTION_POINTERS* exception, wchar_t* text) {
  MINIDUMP_USER_STREAM stream = {CommentStreamW, static_cast<ULONG>((std::wcslen(text) + 1) * sizeof(wchar_t)), text};
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
    SetFilePointer(dump_file_, 0, nullptr, FILE_BEGIN);
    SetEndOfFile(dump_file_);
    written = attempt();
  }
  CloseHandle(std::exchange(dump_file_, INVALID_HANDLE_VALUE));
  if (written) return dump_status::kWritten;
  DeleteFileW(path_);
  return dump_status::kWriteFailed;
}

}  // namespace crv::crashguard
