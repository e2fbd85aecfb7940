// Where the module's log file and minidumps go: the suite's data folder and `\log`. The folder is not created here. Any thread.
#pragma once

#include <string>

namespace crv::wsc {

// Errors of the known-folder query pass through.
[[nodiscard]] std::wstring LogFolder();

// `wsc.log` in the log folder.
[[nodiscard]] std::wstring LogFile();

}  // namespace crv::wsc
