// Where the library throws because its script says so. A script that cannot be read counts as none.
#pragma once

#include <stdexcept>

#include "base/exceptions.h"
#include "log/control.h"

namespace crv::standins::log {

inline void ThrowIfScripted(const wchar_t* operation) {
  bool fails = false;
  try {
    fails = LogThrowsFrom(operation);
  } catch (const exceptions::error&) {
  }
  if (fails) throw std::runtime_error(kLogScriptedFailure);
}

}  // namespace crv::standins::log
