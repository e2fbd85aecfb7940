// A structured-exception handler of one stack frame. The 32-bit compiler has no __try: the record that Microsoft's compiler puts
// on the thread's handler chain (fs:[0]) is put there by hand. The object lives on the stack of the thread that it guards, ends on
// that thread, and in the reverse order of others of its kind.
#pragma once

#include <windows.h>

namespace crv::platform {

// As the system calls it, with the record's own address for `frame`. While the system unwinds it is called again with
// kUnwinding set in the record's flags and must answer ExceptionContinueSearch.
using FrameHandler = EXCEPTION_DISPOSITION(__cdecl*)(EXCEPTION_RECORD* exception, void* frame, CONTEXT* context, void* dispatcher);

inline constexpr DWORD kUnwinding = 0x2 | 0x4;  // EXCEPTION_UNWINDING, EXCEPTION_EXIT_UNWIND

struct FrameRegistration {
  explicit FrameRegistration(FrameHandler frame_handler)
      : previous(reinterpret_cast<FrameRegistration*>(__readfsdword(0))), handler(frame_handler) {
    __writefsdword(0, reinterpret_cast<DWORD>(this));
  }
  ~FrameRegistration() { __writefsdword(0, reinterpret_cast<DWORD>(previous)); }
  FrameRegistration(const FrameRegistration&) = delete;
  FrameRegistration& operator=(const FrameRegistration&) = delete;

  FrameRegistration* previous;
  FrameHandler handler;
};

}  // namespace crv::platform
