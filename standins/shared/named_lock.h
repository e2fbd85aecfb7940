// A lock between processes, known by name. The wait is bounded, so a stopped process cannot hang the others: ask whether the lock
// is held. A thread that holds it may take it again. A lock whose owner died counts as free.
#pragma once

#include "root/scoped_handle.h"

namespace crv::standins {

class NamedLock {
 public:
  static constexpr DWORD kWait = 10'000;  // ms

  explicit NamedLock(const wchar_t* name, DWORD wait = kWait);
  ~NamedLock();
  NamedLock(const NamedLock&) = delete;
  NamedLock& operator=(const NamedLock&) = delete;

  bool held() const { return held_; }

 private:
  root::ScopedKernelHandle mutex_;
  bool held_ = false;
};

}  // namespace crv::standins
