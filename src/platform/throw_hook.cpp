// The GNU runtime throws without a structured exception, so no vectored handler sees a throw. The linker leads every throw of the
// image through the hook here (--wrap): it raises the exception that Microsoft's runtime would have raised, comes back, and throws.
// Throwing again with "throw;" raises nothing.
#include <typeinfo>

#include "platform/frame_registration.h"
#include "platform/throw_record.h"

namespace {

using namespace crv::platform;

// The first frame that is asked lets the thread go on, so that no other frame takes the exception for its own.
EXCEPTION_DISPOSITION __cdecl LetThrowGoOn(EXCEPTION_RECORD* exception, void*, CONTEXT*, void*) {
  const bool asked = exception->ExceptionCode == kThrownObject && !(exception->ExceptionFlags & kUnwinding);
  return asked ? ExceptionContinueExecution : ExceptionContinueSearch;
}

__attribute__((noinline)) void ShowThrow(void* object, const std::type_info& type) {
  const ThrowRecord record(object, type);
  const FrameRegistration frame(&LetThrowGoOn);
  record.Raise(0);
}

}  // namespace

extern "C" {

[[noreturn]] void __real___cxa_throw(void* object, std::type_info* type, void (*destroy)(void*));

[[noreturn]] void __wrap___cxa_throw(void* object, std::type_info* type, void (*destroy)(void*)) {
  ShowThrow(object, *type);
  __real___cxa_throw(object, type, destroy);
}

}  // extern "C"
