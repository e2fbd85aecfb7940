#include "platform/spare_stack.h"

namespace crv::platform {
namespace {

alignas(16) unsigned char spare_stack[kSpareStackSize];

}  // namespace

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
