#include "root/lock.h"

#include <new>

namespace crv::root {

// The plain InitializeCriticalSection raises a structured exception on Windows XP when memory runs out.
CLockCS::CLockCS() {
  if (!InitializeCriticalSectionAndSpinCount(&section_, 0)) throw std::bad_alloc();
}

CLockCS::~CLockCS() { DeleteCriticalSection(&section_); }

void CLockCS::Lock() { EnterCriticalSection(&section_); }

void CLockCS::Unlock() { LeaveCriticalSection(&section_); }

void CLockCS::Destroy(bool free_memory) {
  if (free_memory) {
    delete this;
  } else {
    this->~CLockCS();
  }
}

}  // namespace crv::root
