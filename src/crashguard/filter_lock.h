// Keeps the process's unhandled-exception filter from being replaced: while locked, SetUnhandledExceptionFilter of kernel32
// itself does nothing and returns null, whoever calls it. Nothing is unlocked by destruction. Throws nothing, logs nothing; for
// one thread, and no other thread may be calling the function meanwhile.
#pragma once

#include <array>

namespace crv::crashguard {

class FilterLock {
 public:
  // Does nothing when the function cannot be found or made writable.
  void Lock();

  // Puts the function back as it was. When that fails, what is there stays for good.
  void Unlock();

 private:
  using Code = std::array<unsigned char, 8>;

  Code saved_ = {};  // all zero: not locked
};

}  // namespace crv::crashguard
