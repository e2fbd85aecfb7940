#include "platform/structured_guard.h"

#include "platform/direction_flag.h"
#include "platform/frame_registration.h"

namespace crv::platform {
namespace {

struct GuardFrame : FrameRegistration {
  using FrameRegistration::FrameRegistration;

  void* jump[5] = {};  // __builtin_setjmp: frame pointer, label, stack pointer, two spare
  bool ended = false;  // by an exception with this code
  DWORD code = 0;
};

EXCEPTION_DISPOSITION __cdecl EndBody(EXCEPTION_RECORD* exception, void* frame, CONTEXT*, void*) {
  ClearDirectionFlag();
  if (exception->ExceptionFlags & kUnwinding) return ExceptionContinueSearch;
  GuardFrame* volatile const guard = static_cast<GuardFrame*>(static_cast<FrameRegistration*>(frame));
  guard->ended = true;
  guard->code = exception->ExceptionCode;
  // Takes the handlers of the frames in between off the chain. Windows does not keep every register across the call.
  RtlUnwind(frame, nullptr, exception, nullptr);
  __builtin_longjmp(guard->jump, 1);
}

// Keeps no object that the compiler could hold in a register across the jump.
__attribute__((noinline)) void RunInFrame(GuardFrame& frame, void (*body)(void*), void* context) {
  if (__builtin_setjmp(frame.jump) == 0) body(context);
}

}  // namespace

std::optional<DWORD> RunGuarded(void (*body)(void* context), void* context) {
  NT_TIB& thread = ThreadBlock();
  void* const base = thread.StackBase;
  void* const limit = thread.StackLimit;
  GuardFrame frame(&EndBody);
  RunInFrame(frame, body, context);
  if (!frame.ended) return std::nullopt;
  if (thread.StackBase != base) {  // the limit alone changes whenever the stack grows
    thread.StackBase = base;
    thread.StackLimit = limit;
  }
  return frame.code;
}

}  // namespace crv::platform
