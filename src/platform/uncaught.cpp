// How a program ends that cannot go on. The GNU runtime answers an exception that nobody catches, a pure virtual call and abort
// alike with exit code 3, and neither a vectored handler nor the unhandled-exception filter hears of it. Microsoft's runtime
// raises a structured exception that nobody handles: the thrown object itself, or STATUS_FATAL_APP_EXIT. So does this, for the
// image that it is linked into. The stack is still that of the throw, or, where a function that promises not to throw (noexcept)
// let one through, that of this function: the compiler unwinds to there first. Vectored handlers see an uncaught throw twice: when it
// is thrown, and here, marked as kUncaught.
#include <windows.h>

#include <csignal>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>

#include "platform/throw_record.h"

namespace {

using namespace crv::platform;

constexpr DWORD kFatalAppExit = 0x40000015;  // STATUS_FATAL_APP_EXIT

// The object of the exception that is being handled; an exception_ptr is one pointer to it.
void* CurrentObject() {
  const std::exception_ptr current = std::current_exception();
  static_assert(sizeof(current) == sizeof(void*));
  return *reinterpret_cast<void* const*>(&current);
}

[[noreturn]] void EndWithFatalExit() {
  RaiseException(kFatalAppExit, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  TerminateProcess(GetCurrentProcess(), kFatalAppExit);  // a handler that lets the thread go on has nowhere to go
  for (;;) Sleep(INFINITE);
}

[[noreturn]] void EndWithUncaught() {
  if (const std::type_info* const type = abi::__cxa_current_exception_type()) {
    ThrowRecord(CurrentObject(), *type).RaiseUncaught();
    TerminateProcess(GetCurrentProcess(), kThrownObject);
  }
  EndWithFatalExit();
}

const std::terminate_handler previous = std::set_terminate(&EndWithUncaught);

}  // namespace

// Takes the place of the C runtime's function in the image. A handler of SIGABRT is still asked first.
extern "C" void abort() {
  using Handler = void(__cdecl*)(int);
  const Handler handler = std::signal(SIGABRT, SIG_DFL);
  if (handler != SIG_DFL && handler != SIG_IGN && handler != SIG_ERR) handler(SIGABRT);
  EndWithFatalExit();
}
