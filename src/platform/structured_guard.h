// Runs code that may touch what is not there, in place of the __try and __except that the 32-bit compiler lacks. A structured
// exception ends the code at once: destructors of the frames in between do not run, so nothing that they hold is given back. A
// C++ exception passes through like through any other function. Any thread; may be nested. The exchange of stack bounds in
// spare_stack.h is undone when an exception ends the code.
#pragma once

#include <windows.h>

#include <optional>

namespace crv::platform {

// The code of the structured exception that ended `body`, which may be 0; nothing when the body came to its own end.
[[nodiscard]] std::optional<DWORD> RunGuarded(void (*body)(void* context), void* context);

template <typename Body>
[[nodiscard]] std::optional<DWORD> Guarded(Body body) {
  return RunGuarded([](void* context) { (*static_cast<Body*>(context))(); }, &body);
}

}  // namespace crv::platform
