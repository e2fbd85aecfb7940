// What the caller may do and who he is, read from access tokens. A security identifier (SID) names a user or a group; a token
// names one user and the groups that he acts for. The queries about the caller ask the token of the calling thread while it
// impersonates, otherwise that of the process, so their answers can differ between threads.
//
// Failures throw `crv::exceptions::error` with the last error and the texts given here. Nothing is kept; any thread.
#pragma once

#include <windows.h>

#include "root/scoped_handle.h"

namespace crv::root {

// One SID, either made and freed by the object or lent to it. It is only read.
class ScopedSid {
 public:
  // Makes a SID of one or two sub-authorities. Throws with "AllocateAndInitializeSid".
  ScopedSid(SID_IDENTIFIER_AUTHORITY authority, BYTE sub_authority_count, DWORD first, DWORD second = 0);

  // Wraps a SID that belongs to somebody else and outlives the object.
  explicit ScopedSid(PSID lent) : sid_(lent) {}

  ScopedSid(const ScopedSid&) = delete;
  ScopedSid& operator=(const ScopedSid&) = delete;

  PSID get() const { return sid_; }

 private:
  ScopedSidBlock made_;
  PSID sid_;
};

// Whether the token acts for BUILTIN\Administrators; the filtered token that User Account Control gives an administrator does
// not. `token` needs TOKEN_DUPLICATE and TOKEN_QUERY and stays the caller's. Throws with "AllocateAndInitializeSid", "Unable to
// duplicate the access token!" or "Unable to check token membership!".
[[nodiscard]] bool IsAdministrator(HANDLE token);

// The two questions about the caller throw an error with code 0xFFFFFFFF and their own name, in which the failure itself is
// nested: "Unable to open current thread token!", "Unable to open default process token!", or what is said at each.

// IsAdministrator of the caller's token; nested as it throws.
[[nodiscard]] bool RunningUnderAdminAccount();

// Whether the caller is LocalSystem, LocalService or NetworkService. Nested: "Unable to retrieve the size of user SID!", "Unable
// to retrieve the user SID!", "AllocateAndInitializeSid".
[[nodiscard]] bool RunningUnderServiceAccount();

}  // namespace crv::root
