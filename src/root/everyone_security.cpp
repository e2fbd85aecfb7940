#include "root/everyone_security.h"

#include "root/scoped_handle.h"

namespace crv::root {

bool EveryoneSecurity::Build() {
  attributes_ = {};
  SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
  ScopedSidBlock everyone;
  if (!AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, everyone.put())) return false;

  auto* const acl = reinterpret_cast<ACL*>(acl_);
  const bool built =
      InitializeAcl(acl, kAclSize, ACL_REVISION) &&
      AddAccessAllowedAceEx(acl, ACL_REVISION, OBJECT_INHERIT_ACE | INHERIT_ONLY_ACE, GENERIC_ALL,
                            everyone.get()) &&                                                             // the files
      AddAccessAllowedAceEx(acl, ACL_REVISION, CONTAINER_INHERIT_ACE, FILE_ALL_ACCESS, everyone.get()) &&  // the folders
      InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
      SetSecurityDescriptorDacl(&descriptor_, TRUE, acl, FALSE);
  if (built) attributes_ = {sizeof(attributes_), &descriptor_, FALSE};
  return built;
}

}  // namespace crv::root
