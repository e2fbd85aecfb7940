// One run of a writer of dumps; private to CrashHandler.
#pragma once

#include <windows.h>

#include "crashguard/crash_handler.h"
#include "crashguard/guard_log.h"

namespace crv::crashguard {

// Holds the lock, and the writing flag unless another run on this thread has it; that is logged.
class CrashHandler::Writer {
 public:
  explicit Writer(CrashHandler& handler) : handler_(handler) {
    EnterCriticalSection(&handler_.lock_);
    busy_ = handler_.writing_.exchange(true);
    if (busy_) Record([] { log::Error(tag, "Attempted to WriteDump while another operation is already in progress"); });
  }
  ~Writer() {
    if (!busy_) {
      handler_.CloseDumper();
      EndWriting();
    }
    LeaveCriticalSection(&handler_.lock_);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  explicit operator bool() const { return !busy_; }

  void EndWriting() { handler_.writing_ = false; }

 private:
  CrashHandler& handler_;
  bool busy_;
};

}  // namespace crv::crashguard
