// Runs an action with administrator rights. Blocks the calling thread.
#pragma once

#include <functional>

#include "base/command_line.h"

namespace crv::wsc {

// With an administrator token: runs the action here; its exceptions pass through. Otherwise restarts the host elevated with the
// command line's switches and words, which carries the action out there, and waits for its end without a limit. A restart that
// hands back no process counts as done.
//
// Throws `crv::exceptions::error` when the restart is refused (also by the user), when the elevated host cannot be waited for,
// and when it ends with another code than 0, which becomes the error's code. "Elevated" may turn out to be the same rights again:
// XP's Run As with its protective box, a standard user where User Account Control is off. The environment variable
// CRV_WSC_RESTARTED marks a restarted host; one without an administrator token throws 740 instead of restarting another. The
// variable is in this process's environment during the restart alone, in the restarted host's until it comes here.
void run_elevated(const CommandLine& command_line, const std::function<void()>& action);

}  // namespace crv::wsc
