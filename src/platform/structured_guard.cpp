#include "platform/structured_guard.h"

#include "platform/frame_registration.h"

namespace crv::platform {
namespace {

struct GuardFrame : FrameRegistration {
  using FrameRegistration::FrameRegistration;

  void* jump[5] = {};  // __builtin_setjmp: frame pointer, label, stack pointer, two spare
  DWORD code = 0;
};

EXCEPTION_DISPOSITION __cdecl EndBody(EXCEPTION_RECORD* exception, void* frame, CONTEXT*, void*) {
  if (exception->ExceptionFlags & kUnwinding) return ExceptionContinueSearch;
  GuardFrame* const guard = static_cast<GuardFrame*>(static_cast<FrameRegistration*>(frame));
  guard->code = exception->ExceptionCode;
  RtlUnwind(frame, nullptr, exception, nullptr);  // takes the handlers of the frames in between off the chain
  __builtin_longjmp(guard->jump, 1);
}

// Keeps no object that the compiler could hold in a register across the jump.
__attribute__((noinline)) void RunInFrame(GuardFrame& frame, void (*body)(void*), void* context) {
  if (__builtin_setjmp(frame.jump) == 0) body(context);
}

}  // namespace

DWORD RunGuarded(void (*body)(void* context), void* context) {
  GuardFrame frame(&EndBody);
  RunInFrame(frame, body, context);
  return frame.code;
}

}  // namespace crv::platform
