// A structured-exception handler of one stack frame. The 32-bit compiler has no __try: the record that Microsoft's compiler puts
// on the thread's handler chain (fs:[0]) is put there by hand. The object lives on the stack of the thread that it guards, ends
// on that thread, and in the reverse order of others of its kind.
#pragma once

#include <windows.h>

namespace crv::platform {

// As the system calls it, with the record's own address for `frame`. While the system unwinds it is called again with
// kUnwinding set in the record's flags and must answer ExceptionContinueSearch.
using FrameHandler = EXCEPTION_DISPOSITION(__cdecl*)(EXCEPTION_RECORD* exception, void* frame, CONTEXT* context,
                                                     void* dispatcher);

inline constexpr DWORD kUnwinding = 0x2 | 0x4;  // EXCEPTION_UNWINDING, EXCEPTION_EXIT_UNWIND

// The head of the calling thread's handler chain. The compiler's own intrinsics may be moved across the code that a handler
// guards.
inline void* HandlerChain() {
  void* head;
  asm volatile("movl %%fs:0, %0" : "=r"(head)::"memory");
  return head;
}
inline void SetHandlerChain(void* head) { asm volatile("movl %0, %%fs:0" ::"r"(head) : "memory"); }

// The head of the calling thread's environment block.
inline NT_TIB& ThreadBlock() {
  NT_TIB* thread;
  asm("movl %%fs:0x18, %0" : "=r"(thread));
  return *thread;
}

// Whether the place lies within what the system knows as the calling thread's stack. It asks only the handlers there.
inline bool IsOnThreadStack(const void* place) {
  const NT_TIB& thread = ThreadBlock();
  return place >= thread.StackLimit && place < thread.StackBase;
}

struct FrameRegistration {
  explicit FrameRegistration(FrameHandler frame_handler)
      : previous(static_cast<FrameRegistration*>(HandlerChain())), handler(frame_handler) {
    SetHandlerChain(this);
  }
  ~FrameRegistration() { SetHandlerChain(previous); }
  FrameRegistration(const FrameRegistration&) = delete;
  FrameRegistration& operator=(const FrameRegistration&) = delete;

  FrameRegistration* previous;
  FrameHandler handler;
};

}  // namespace crv::platform
