// Runs an action with administrator rights. Blocks the calling thread.
#pragma once

#include <functional>

#include "base/command_line.h"

namespace crv::wsc {

// With an administrator token: runs the action here; its exceptions pass through. Otherwise restarts the host elevated with the
// command line's switches and words, which carries the action out there, and waits for its end without a limit. Throws
// `crv::exceptions::error` when the restart is refused (also by the user) or the elevated host ends with another code than 0,
// which becomes the error's code. A restart that hands back no process counts as done.
void run_elevated(const CommandLine& command_line, const std::function<void()>& action);

}  // namespace crv::wsc
