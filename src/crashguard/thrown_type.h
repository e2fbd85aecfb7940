// Recognises a thrown object in an exception record, whoever raised it: this module, code of Microsoft's compiler in the same
// process, or somebody who claims to. A record that is not what it claims is nobody's throw. Throws nothing, takes no memory.
#pragma once

#include <windows.h>

namespace crv::crashguard {

// Whether the record is the throw of a crv::exceptions::fatal (not of something derived from it), or the raise that ends the
// process when nobody caught it.
[[nodiscard]] bool IsFatalException(const EXCEPTION_RECORD& record);

// Whether the record, for which IsFatalException holds, is that last raise: the same exception once more.
[[nodiscard]] bool IsUncaughtAgain(const EXCEPTION_RECORD& record);

}  // namespace crv::crashguard
