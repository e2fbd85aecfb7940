// `run`: one call of the host, from the command line to its whole 32-bit result.
#pragma once

#include <string>

namespace crv::standins::centre {

// Starts wsc_proxy.exe beside centre.exe with the tail, unchanged, behind its quoted path; waits for it; prints the command line,
// what it added to wsc.log, the products and what else it changed on the stage and, last, "result 0x%08x". Gives 0 when the result
// is 0, else 1. Throws crv::exceptions::error when the host cannot be started.
int RunHost(const std::wstring& tail);

// The text of a command line behind its first words: blanks between words are skipped, the rest is unchanged.
std::wstring Tail(const wchar_t* command_line, int words);

}  // namespace crv::standins::centre
