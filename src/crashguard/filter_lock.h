// Keeps the process's unhandled-exception filter from being replaced: while locked, SetUnhandledExceptionFilter of kernel32
// itself does nothing and returns null, whoever calls it. Nothing is unlocked by destruction. Throws nothing, logs nothing. For one
// thread; another one may call the function meanwhile, and finds it as it was or as it will be, but must not be inside.
#pragma once

#include <cstdint>
#include <optional>

namespace crv::crashguard {

class FilterLock {
 public:
  // Does nothing when the function cannot be found or made writable.
  void Lock();

  // Puts the function back as it was. When that fails, what is there stays for good.
  void Unlock();

 private:
  std::optional<std::int64_t> saved_;  // the code that was exchanged, while locked
};

}  // namespace crv::crashguard
