#include "platform/structured_guard.h"

#include "platform/direction_flag.h"
#include "platform/frame_registration.h"

// Calls body(context) and goes on behind the call, however it ends; `way_out` gets what the handler needs to go on there. In assembly,
// since each compiler's setjmp keeps other registers, and none takes a call in inline assembly for one that may throw. A C++ exception
// passes through by the unwind table.
struct WayOut {
  void* frame_pointer = nullptr;
  void* place = nullptr;
};
extern "C" void crv_call_with_way_out(WayOut* way_out, void (*body)(void*), void* context);
asm(R"(
    .text
    .p2align 4
_crv_call_with_way_out:
    .cfi_startproc
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset %ebp, -8
    movl %esp, %ebp
    .cfi_def_cfa_register %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    .cfi_offset %ebx, -12
    .cfi_offset %esi, -16
    .cfi_offset %edi, -20
    subl $8, %esp  # the argument then lies on a multiple of 16 bytes
    movl 8(%ebp), %eax
    movl %ebp, (%eax)
    movl $1f, 4(%eax)
    pushl 16(%ebp)
    call *12(%ebp)
1:
    leal -12(%ebp), %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    .cfi_def_cfa %esp, 4
    ret
    .cfi_endproc
)");

namespace crv::platform {
namespace {

struct GuardFrame : FrameRegistration {
  using FrameRegistration::FrameRegistration;

  WayOut way_out;
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
  asm volatile(
      "movl (%%eax), %%ebp\n\t"
      "jmp *4(%%eax)"
      :
      : "a"(&guard->way_out)
      : "memory");
  __builtin_unreachable();
}

}  // namespace

std::optional<DWORD> RunGuarded(void (*body)(void* context), void* context) {
  NT_TIB& thread = ThreadBlock();
  void* const base = thread.StackBase;
  void* const limit = thread.StackLimit;
  GuardFrame frame(&EndBody);
  crv_call_with_way_out(&frame.way_out, body, context);
  if (!frame.ended) return std::nullopt;
  if (thread.StackBase != base) {  // the limit alone changes whenever the stack grows
    thread.StackBase = base;
    thread.StackLimit = limit;
  }
  return frame.code;
}

}  // namespace crv::platform
