// The GNU runtime throws without a structured exception, so no vectored handler sees a throw. The linker leads every throw of the
// image through the hook here (--wrap): it raises the exception that Microsoft's runtime would have raised, comes back, and
// throws. Throwing again with "throw;" raises nothing.
#include <typeinfo>

#include "platform/frame_registration.h"
#include "platform/throw_record.h"

namespace {

using namespace crv::platform;

struct ThrowFrame : FrameRegistration {
  ThrowFrame(FrameHandler frame_handler, const ThrowRecord& thrown) : FrameRegistration(frame_handler), record(thrown) {}

  const ThrowRecord& record;
};

// The first frame that is asked lets the thread go on, so that no other frame takes the exception for its own.
EXCEPTION_DISPOSITION __cdecl LetThrowGoOn(EXCEPTION_RECORD* exception, void* frame, CONTEXT*, void*) {
  const auto* const thrown = static_cast<ThrowFrame*>(static_cast<FrameRegistration*>(frame));
  const bool asked = !(exception->ExceptionFlags & kUnwinding) && thrown->record.RaisedAs(*exception);
  return asked ? ExceptionContinueExecution : ExceptionContinueSearch;
}

__attribute__((noinline)) void ShowThrow(void* object, const std::type_info& type) {
  const ThrowRecord record(object, type);
  const ThrowFrame frame(&LetThrowGoOn, record);
  // On another stack than the thread's the system would not ask the frame, and end the process.
  if (IsOnThreadStack(&frame)) record.Raise();
}

}  // namespace

extern "C" {

[[noreturn]] void __real___cxa_throw(void* object, std::type_info* type, void (*destroy)(void*));

[[noreturn]] void __wrap___cxa_throw(void* object, std::type_info* type, void (*destroy)(void*)) {
  ShowThrow(object, *type);
  __real___cxa_throw(object, type, destroy);
}

}  // extern "C"
