#include "root/token.h"

#include <cstddef>
#include <exception>
#include <memory>

#include "base/exceptions.h"

namespace crv::root {
namespace {

constexpr SID_IDENTIFIER_AUTHORITY kNtAuthority = {SECURITY_NT_AUTHORITY};

ScopedKernelHandle OpenCallersToken() {
  constexpr DWORD kAccess = TOKEN_DUPLICATE | TOKEN_QUERY;
  ScopedKernelHandle token;
  if (OpenThreadToken(GetCurrentThread(), kAccess, FALSE, token.put())) return token;
  if (const DWORD code = GetLastError(); code != ERROR_NO_TOKEN) {
    throw exceptions::error(code, "Unable to open current thread token!");
  }
  if (!OpenProcessToken(GetCurrentProcess(), kAccess, token.put())) {
    throw exceptions::error(GetLastError(), "Unable to open default process token!");
  }
  return token;
}

// A TOKEN_USER; its SID lies in the same block.
std::unique_ptr<std::byte[]> ReadTokenUser(HANDLE token) {
  DWORD size = 0;
  if (GetTokenInformation(token, TokenUser, nullptr, 0, &size) || GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    throw exceptions::error(GetLastError(), "Unable to retrieve the size of user SID!");
  }
  auto block = std::make_unique<std::byte[]>(size);
  if (!GetTokenInformation(token, TokenUser, block.get(), size, &size)) {
    throw exceptions::error(GetLastError(), "Unable to retrieve the user SID!");
  }
  return block;
}

bool IsServiceAccount(const ScopedSid& user) {
  for (const DWORD account : {SECURITY_LOCAL_SYSTEM_RID, SECURITY_LOCAL_SERVICE_RID, SECURITY_NETWORK_SERVICE_RID}) {
    if (EqualSid(user.get(), ScopedSid(kNtAuthority, 1, account).get())) return true;
  }
  return false;
}

// Runs a question and puts its name around whatever it throws.
template <typename Question>
bool Ask(const char* name, Question question) {
  try {
    return question();
  } catch (...) {
    std::throw_with_nested(exceptions::error("%s", name));
  }
}

}  // namespace

ScopedSid::ScopedSid(SID_IDENTIFIER_AUTHORITY authority, BYTE sub_authority_count, DWORD first, DWORD second) {
  if (!AllocateAndInitializeSid(&authority, sub_authority_count, first, second, 0, 0, 0, 0, 0, 0, made_.put())) {
    throw exceptions::error(GetLastError(), "AllocateAndInitializeSid");
  }
  sid_ = made_.get();
}

bool IsAdministrator(HANDLE token) {
  const ScopedSid administrators(kNtAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS);
  ScopedKernelHandle duplicate;
  if (!DuplicateToken(token, SecurityIdentification, duplicate.put())) {
    throw exceptions::error(GetLastError(), "Unable to duplicate the access token!");
  }
  BOOL member = FALSE;
  if (!CheckTokenMembership(duplicate.get(), administrators.get(), &member)) {
    throw exceptions::error(GetLastError(), "Unable to check token membership!");
  }
  return member;
}

bool RunningUnderAdminAccount() {
  return Ask("RunningUnderAdminAccount", [] { return IsAdministrator(OpenCallersToken().get()); });
}

bool RunningUnderServiceAccount() {
  return Ask("RunningUnderServiceAccount", [] {
    const ScopedKernelHandle token = OpenCallersToken();
    const std::unique_ptr<std::byte[]> user = ReadTokenUser(token.get());
    return IsServiceAccount(ScopedSid(reinterpret_cast<TOKEN_USER*>(user.get())->User.Sid));
  });
}

}  // namespace crv::root
