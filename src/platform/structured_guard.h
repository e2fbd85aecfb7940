// Runs code that may touch what is not there, in place of the __try and __except that the 32-bit compiler lacks. A structured
// exception ends the code at once: destructors of the frames in between do not run, so nothing that they hold is given back. A
// C++ exception passes through like through any other function. Any thread; may be nested.
#pragma once

#include <windows.h>

namespace crv::platform {

// The code of the structured exception that ended `body`, or 0.
DWORD RunGuarded(void (*body)(void* context), void* context);

template <typename Body>
DWORD Guarded(Body body) {
  return RunGuarded([](void* context) { (*static_cast<Body*>(context))(); }, &body);
}

}  // namespace crv::platform
