// A stack beside the thread's own, for handling the overflow of that one: Windows leaves some pages for it, Wine 8 less than one,
// too little to start a dumper or to write a dump. The thread's bounds as the system knows them stay as they are, so that a dump
// shows the stack that overflowed. On the spare stack the system therefore asks no frame: a structured exception raised there ends
// the process, guarded or not. C++ exceptions work.
#pragma once

#include <cstddef>

namespace crv::platform {

inline constexpr std::size_t kSpareStackSize = 0x40000;  // bytes

// Runs `body`, which must not throw, on the one spare stack of the image, where the thread's chain of handlers begins anew. One thread
// at a time.
void RunOnSpareStack(void (*body)(void* context), void* context);

// While it lives, the system takes the spare stack for the thread's own, if the thread runs there: structured exceptions find
// their handlers, among them that of OutputDebugString, which raises one. Elsewhere it does nothing. An object of one scope; code
// that it surrounds and that a structured exception ends gets the old bounds back from structured_guard.h.
class KnownSpareStack {
 public:
  KnownSpareStack();
  ~KnownSpareStack();
  KnownSpareStack(const KnownSpareStack&) = delete;
  KnownSpareStack& operator=(const KnownSpareStack&) = delete;

 private:
  void* base_;
  void* limit_;
};

}  // namespace crv::platform
