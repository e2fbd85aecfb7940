// The crash guard's records. They are written while a process is set up, crashes or ends, so a log library that fails costs the
// record and nothing else.
#pragma once

#include "base/log.h"

namespace crv::crashguard {

inline constexpr log::Tag tag("crashguard");

// Runs `write`, which logs, and keeps back whatever it throws.
template <typename Write>
void Record(Write write) noexcept {
  try {
    write();
  } catch (...) {
  }
}

}  // namespace crv::crashguard
