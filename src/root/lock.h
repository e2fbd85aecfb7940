// The common OS library's lock object, behind the interface through which its users know it. Any thread may lock, and the thread
// that holds the lock may lock it again; it unlocks as often as it locked. Nobody may hold or wait for a lock that is being destroyed.
#pragma once

#include <windows.h>

#include <cstdint>

namespace crv::root {

// The order of the virtual operations is part of the binary interface. Destroy is an ordinary operation because this compiler gives
// a virtual destructor two places in that order.
class CLock {
 public:
  virtual void Lock() = 0;
  virtual void Unlock() = 0;
  virtual void Destroy(bool free_memory) = 0;  // ends the object, and gives memory from `new` back when asked to

 protected:
  ~CLock() = default;
};

// A lock over a critical section of its own.
class CLockCS final : public CLock {
 public:
  CLockCS();  // throws std::bad_alloc when the system has no memory for the critical section
  ~CLockCS();
  CLockCS(const CLockCS&) = delete;
  CLockCS& operator=(const CLockCS&) = delete;

  void Lock() override;
  void Unlock() override;
  void Destroy(bool free_memory) override;

  std::int32_t count() const { return count_; }  // 1; kept for the library's other users

 private:
  CRITICAL_SECTION section_;
  std::int32_t count_ = 1;
};

}  // namespace crv::root
