// Security attributes under which everyone may do anything with a new folder, its sub-folders and the files made in it. The
// attributes point into the object, which therefore never moves. Building is for one thread; the result is only read.
#pragma once

#include <windows.h>

namespace crv::root {

class EveryoneSecurity {
 public:
  EveryoneSecurity() = default;
  EveryoneSecurity(const EveryoneSecurity&) = delete;
  EveryoneSecurity& operator=(const EveryoneSecurity&) = delete;

  // Builds everything anew. Returns a Windows error code; after a failure the attributes must not be used.
  DWORD Build();

  // Null before the first Build has succeeded. Handles made with them are not inherited.
  SECURITY_ATTRIBUTES* get() { return attributes_.nLength != 0 ? &attributes_ : nullptr; }
  const SECURITY_ATTRIBUTES* get() const { return attributes_.nLength != 0 ? &attributes_ : nullptr; }

 private:
  static constexpr DWORD kAclBytes = 2048;

  bool FillAcl(ACL* acl);

  SECURITY_ATTRIBUTES attributes_ = {};
  SECURITY_DESCRIPTOR descriptor_ = {};
  alignas(ACL) BYTE acl_[kAclBytes] = {};
};

}  // namespace crv::root
