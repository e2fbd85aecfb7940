#include "crashguard/exception_filters.h"

#include <atomic>

#include "crashguard/crash_guard_module.h"
#include "crashguard/guard_log.h"
#include "crashguard/thrown_type.h"
#include "platform/direction_flag.h"
#include "platform/spare_stack.h"
#include "platform/structured_guard.h"
#include "root/token.h"

namespace crv::crashguard {
namespace {

// Held by the filter; from the load of the library on.
class FilterSection {
 public:
  FilterSection() { InitializeCriticalSection(&section_); }
  ~FilterSection() { DeleteCriticalSection(&section_); }
  void Enter() { EnterCriticalSection(&section_); }
  void Leave() { LeaveCriticalSection(&section_); }

 private:
  CRITICAL_SECTION section_;
} filter_section;

class FilterEntry {
 public:
  FilterEntry() { filter_section.Enter(); }
  ~FilterEntry() { filter_section.Leave(); }
  FilterEntry(const FilterEntry&) = delete;
  FilterEntry& operator=(const FilterEntry&) = delete;
};

std::atomic<bool> filter_entered = false;  // never reset

// Marks the threads that are inside the vectored handler. Where the system has no thread-local slot left there is no mark.
class EntryMark {
 public:
  EntryMark() : slot_(TlsAlloc()) {}
  ~EntryMark() {
    if (slot_ != TLS_OUT_OF_INDEXES) TlsFree(slot_);
  }

  // False when the thread is inside already.
  bool Enter() {
    if (slot_ == TLS_OUT_OF_INDEXES) return true;
    if (TlsGetValue(slot_)) return false;
    TlsSetValue(slot_, reinterpret_cast<void*>(1));
    return true;
  }
  void Leave() {
    if (slot_ != TLS_OUT_OF_INDEXES) TlsSetValue(slot_, nullptr);
  }

 private:
  const DWORD slot_;
} entry_mark;

// A control thread begins at CtrlRoutine with the control code as its argument, to which the system adds a high bit. Started at
// another base, it faults at its first instruction, with nothing on its stack but the return address and the argument.
bool RepairRelocatedCtrlRoutine(EXCEPTION_POINTERS& exception, std::uintptr_t ctrl_routine) {
  constexpr DWORD kMarkedCode = 0x80000000;
  constexpr DWORD kLastCode = 8;
  const auto address = reinterpret_cast<std::uintptr_t>(exception.ExceptionRecord->ExceptionAddress);
  if (!ctrl_routine || LOWORD(ctrl_routine) != LOWORD(address)) return false;
  if (exception.ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION)) return false;
  DWORD argument = 0;
  const auto* const place = reinterpret_cast<const volatile DWORD*>(exception.ContextRecord->Esp + sizeof(DWORD));
  if (platform::Guarded([&] { argument = *place; })) return false;
  if (argument - kMarkedCode > kLastCode) return false;
  Record([] { log::Warning(tag, "Warning: Relocated kernel32 detected."); });
  exception.ContextRecord->Eip = ctrl_routine;
  return true;
}

bool UnderServiceAccount() {
  try {
    return root::RunningUnderServiceAccount();
  } catch (...) {
    return false;
  }
}

// Whether the process ends at once instead of being left to the system's own crash handling. Where the question itself fails or
// faults it is left to the system.
bool EndsAtOnce(const CrashHandler& handler) {
  bool ends = false;
  const platform::KnownSpareStack stack;
  const auto faulted = platform::Guarded([&] {
    if (handler.IsShutdown()) {
      ends = true;
      Record([] { log::Info(tag, "Saved a crash when system is shutting down."); });
    } else {
      ends = UnderServiceAccount();
    }
  });
  return ends && !faulted;
}

// The filter's work, under its lock.
LONG HandleCrash(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code != static_cast<DWORD>(STATUS_STACK_OVERFLOW)) {
    Record([] { log::Debug(tag, "Entering TopLevelExceptionFilter..."); });
  }
  const std::shared_ptr<CrashGuardModule> module = FindCrashGuardModule();
  if (!module) return EXCEPTION_CONTINUE_SEARCH;
  CrashHandler& handler = module->handler();
  if (RepairRelocatedCtrlRoutine(*exception, handler.ctrl_routine())) return EXCEPTION_CONTINUE_EXECUTION;
  handler.SetFatal();
  if (filter_entered.exchange(true)) {
    Record([] { log::Error(tag, "Multiple calls to TopLevelExceptionFilter detected."); });
    return EXCEPTION_CONTINUE_SEARCH;
  }
  handler.WriteDump(exception, false, nullptr);
  if (EndsAtOnce(handler)) TerminateProcess(GetCurrentProcess(), code);
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

LONG WINAPI TopLevelExceptionFilter(EXCEPTION_POINTERS* exception) {
  platform::ClearDirectionFlag();
  struct Crash {
    EXCEPTION_POINTERS* exception;
    LONG answer;
  } crash = {exception, EXCEPTION_CONTINUE_SEARCH};
  const auto handle = [](void* context) {
    Crash& crash = *static_cast<Crash*>(context);
    try {
      crash.answer = HandleCrash(crash.exception);
    } catch (...) {
      // The search goes on.
    }
  };
  const FilterEntry entry;
  if (exception->ExceptionRecord->ExceptionCode == static_cast<DWORD>(STATUS_STACK_OVERFLOW)) {
    platform::RunOnSpareStack(handle, &crash);
  } else {
    handle(&crash);
  }
  return crash.answer;
}

void AwaitFilter() { const FilterEntry entry; }

LONG WINAPI VectoredExceptionHandler(EXCEPTION_POINTERS* exception) {
  platform::ClearDirectionFlag();
  const DWORD last_error = GetLastError();  // the interrupted code's, which asking for a slot already changes
  if (!entry_mark.Enter()) {
    SetLastError(last_error);
    return EXCEPTION_CONTINUE_SEARCH;
  }
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (IsFatalException(record) && !IsUncaughtAgain(record)) {
    if (const std::shared_ptr<CrashGuardModule> module = FindCrashGuardModule()) {
      module->handler().WriteDump(exception, true, L"Cause: VectoredExceptionHandler");
    }
  }
  entry_mark.Leave();
  SetLastError(last_error);
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace crv::crashguard
