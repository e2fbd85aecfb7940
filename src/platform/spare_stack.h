// A stack beside the thread's own, for handling the overflow of that one: Windows leaves some pages for it, Wine 8 less than one,
// too little to start a dumper or to write a dump. The thread's bounds as the system knows them stay as they are, so that a dump
// shows the stack that overflowed; a structured exception raised on the spare stack therefore ends the process, guarded or not,
// and so does OutputDebugString, which raises one. C++ exceptions work.
#pragma once

#include <cstddef>

namespace crv::platform {

inline constexpr std::size_t kSpareStackSize = 0x40000;  // bytes

// Runs `body`, which must not throw, on the one spare stack of the image. One thread at a time.
void RunOnSpareStack(void (*body)(void* context), void* context);

}  // namespace crv::platform
