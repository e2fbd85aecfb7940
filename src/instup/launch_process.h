// Starts a program of the suite, as its installer. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::instup {

// Starts the command line's program, allows it to bring its window to the front and, with a place for the exit code, blocks
// without a limit until it has ended. Returns whether it was started; the last error tells why not. The place is left alone when
// nothing was started or the code cannot be read.
[[nodiscard]] bool LaunchProcess(const std::wstring& command_line, std::uint32_t* exit_code);

}  // namespace crv::instup
