// The compiler takes the processor's direction flag for clear wherever a function begins. A handler of exceptions can be entered
// with the flag as the interrupted code left it, and the compiler has no intrinsic that clears it.
#pragma once

namespace crv::platform {

inline void ClearDirectionFlag() { asm volatile("cld" ::: "cc", "memory"); }

}  // namespace crv::platform
