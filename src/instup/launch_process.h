// Starts a program of the suite, such as its installer. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::instup {

// Starts the command line's program, allows it to bring its window to the front and, with a place for the exit code, blocks
// without a limit until it has ended. Returns whether it runs; the last error tells why not, and a process that may not run is
// ended. If this process is killed meanwhile, the new one is either running or ended too, never left suspended, except in the
// moment after its creation. Throws as
// root::WaitForExitCode does when the end or the code cannot be had. The place is written only with the code.
[[nodiscard]] bool LaunchProcess(const std::wstring& command_line, std::uint32_t* exit_code);

}  // namespace crv::instup
