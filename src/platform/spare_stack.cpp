#include "platform/spare_stack.h"

#include <windows.h>

#include <utility>

#include "platform/frame_registration.h"

namespace crv::platform {
namespace {

constexpr std::size_t kPage = 0x1000;  // bytes

alignas(kPage) unsigned char spare_stack[kSpareStackSize];

// The lowest page is a guard page: an overflow of this stack faults there instead of overwriting what lies below.
[[maybe_unused]] const bool is_guarded = [] {
  DWORD protection;
  return VirtualProtect(spare_stack, kPage, PAGE_NOACCESS, &protection) != FALSE;
}();

struct Work {
  void (*body)(void* context);
  void* context;
};

FrameRegistration* const kNoMore = reinterpret_cast<FrameRegistration*>(-1);

// The handler that the system began the thread's chain with; null when the chain leads off the stack.
FrameHandler LastHandler() {
  auto* frame = static_cast<FrameRegistration*>(HandlerChain());
  while (IsOnThreadStack(frame) && frame->previous != kNoMore) {
    if (frame->previous <= frame) return nullptr;
    frame = frame->previous;
  }
  return IsOnThreadStack(frame) ? frame->handler : nullptr;
}

// Before Windows asks anyone, it may go through the whole chain and ask nobody when one record lies off the stack, or the last is
// not its own (SEHOP). The thread's records lie on its own stack, so the chain begins anew here, with the same last handler.
void RunWithNewChain(void* context) {
  const Work& work = *static_cast<Work*>(context);
  const FrameHandler handler = LastHandler();
  if (!handler) return work.body(work.context);
  FrameRegistration last(handler);
  FrameRegistration* const previous = std::exchange(last.previous, kNoMore);
  work.body(work.context);
  last.previous = previous;
}

bool RunsOnSpareStack() {
  const auto* const here = static_cast<const unsigned char*>(__builtin_frame_address(0));
  return here >= spare_stack && here < spare_stack + kSpareStackSize;
}

}  // namespace

KnownSpareStack::KnownSpareStack() : base_(ThreadBlock().StackBase), limit_(ThreadBlock().StackLimit) {
  if (!RunsOnSpareStack()) return;
  ThreadBlock().StackBase = spare_stack + kSpareStackSize;
  ThreadBlock().StackLimit = spare_stack + kPage;
}

KnownSpareStack::~KnownSpareStack() {
  if (!RunsOnSpareStack()) return;
  ThreadBlock().StackBase = base_;
  ThreadBlock().StackLimit = limit_;
}

__attribute__((noinline)) void RunOnSpareStack(void (*body)(void* context), void* context) {
  constexpr std::size_t kArgument = 16;  // bytes; keeps the stack aligned at the call
  unsigned char* const top = spare_stack + kSpareStackSize - kArgument;
  Work work = {body, context};
  auto* run = &RunWithNewChain;
  asm volatile(
      "movl %%esp, %%ebx\n\t"
      "movl %[top], %%esp\n\t"
      "movl %[context], (%%esp)\n\t"
      "call *%[body]\n\t"
      "movl %%ebx, %%esp"
      : [body] "+a"(run)
      : [top] "S"(top), [context] "D"(&work)
      : "ebx", "ecx", "edx", "memory", "cc");
}

}  // namespace crv::platform
