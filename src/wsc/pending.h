// The retry rule for Security Center calls that answer E_PENDING.
#pragma once

#include <windows.h>

#include "base/log.h"

namespace crv::wsc {

inline constexpr int kPendingRetryLimit = 18000;  // repeats of one call
inline constexpr DWORD kPendingPause = 50;        // ms before each repeat
inline constexpr int kPendingLogInterval = 100;   // repeats between two log records

// Makes the call and repeats it while it answers E_PENDING, at most 18,000 times 50 ms apart (some 15 minutes). Returns the last
// answer, which is still E_PENDING when the limit was reached. Blocks the calling thread.
template <typename Call>
[[nodiscard]] HRESULT call_while_pending(const log::Tag& tag, Call call) {
  HRESULT result = call();
  for (int counter = 0; result == E_PENDING; ++counter) {
    if (counter >= kPendingRetryLimit) {
      log::Critical(tag, "wsc still pending");
      break;
    }
    if (counter % kPendingLogInterval == 0) log::Debug(tag, "wsc pending: %d", counter);
    Sleep(kPendingPause);
    result = call();
  }
  return result;
}

}  // namespace crv::wsc
