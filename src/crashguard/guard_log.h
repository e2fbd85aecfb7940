// The crash guard's records. They are written while a process is set up, crashes or ends, so a log library that fails costs the
// record and nothing else.
#pragma once

#include "base/log.h"

namespace crv::crashguard {

inline constexpr log::Tag tag("crashguard");

// Runs `write`, which must not throw, and ends it if it faults. On the spare stack, too.
void RunRecord(void (*write)(void* context), void* context) noexcept;

// Runs `write`, which logs; whatever it throws, and a fault in it, stays here. After a fault what the log library held is lost.
template <typename Write>
void Record(Write write) noexcept {
  const auto run = [](void* context) {
    try {
      (*static_cast<Write*>(context))();
    } catch (...) {
    }
  };
  RunRecord(run, &write);
}

}  // namespace crv::crashguard
