// Starting the programs that are measured. What cannot be done ends the benchmark with a line on stderr.
#pragma once

#include <windows.h>

#include <string>

namespace crv::bench {

std::wstring OwnFolder();    // of this program, with a backslash at its end
std::wstring SuiteFolder();  // where scripts/stage has installed the suite, the same

// Runs `"program" arguments` to its end and gives its exit code.
DWORD Run(const std::wstring& program, const std::wstring& arguments);

void Require(bool fine, const char* what);  // the line shows the last error, too

}  // namespace crv::bench
