// Security attributes under which everyone may do anything with a new folder, its sub-folders and the files made in it. They
// point into the object, which therefore never moves. Building is for one thread; the result is only read.
#pragma once

#include <windows.h>

namespace crv::root {

class EveryoneSecurity {
 public:
  EveryoneSecurity() = default;
  EveryoneSecurity(const EveryoneSecurity&) = delete;
  EveryoneSecurity& operator=(const EveryoneSecurity&) = delete;

  // Builds everything anew. Fails only when memory runs out.
  [[nodiscard]] bool Build();

  // Null unless the last Build succeeded. Handles made with the attributes are not inherited.
  SECURITY_ATTRIBUTES* get() { return attributes_.nLength != 0 ? &attributes_ : nullptr; }

 private:
  static constexpr DWORD kAclSize = 2048;  // bytes

  SECURITY_ATTRIBUTES attributes_ = {};
  SECURITY_DESCRIPTOR descriptor_ = {};
  alignas(DWORD) BYTE acl_[kAclSize] = {};  // the system refuses an ACL that is not aligned
};

}  // namespace crv::root
