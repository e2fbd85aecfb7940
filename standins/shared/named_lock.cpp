#include "shared/named_lock.h"

namespace crv::standins {

NamedLock::NamedLock(const wchar_t* name, DWORD wait) : mutex_(CreateMutexW(nullptr, FALSE, name)) {
  if (!mutex_) return;
  const DWORD result = WaitForSingleObject(mutex_.get(), wait);
  held_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

NamedLock::~NamedLock() {
  if (held_) ReleaseMutex(mutex_.get());
}

}  // namespace crv::standins
