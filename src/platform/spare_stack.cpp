#include "platform/spare_stack.h"

#include <windows.h>

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
  asm volatile(
      "movl %%esp, %%ebx\n\t"
      "movl %[top], %%esp\n\t"
      "movl %[context], (%%esp)\n\t"
      "call *%[body]\n\t"
      "movl %%ebx, %%esp"
      : [body] "+a"(body)
      : [top] "S"(top), [context] "D"(context)
      : "ebx", "ecx", "edx", "memory", "cc");
}

}  // namespace crv::platform
