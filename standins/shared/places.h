// Where things are on this machine: the folder that centre.exe shares with the other programs, and the suite's log. Failures
// throw crv::exceptions::error.
#pragma once

#include <string>

namespace crv::standins {

std::wstring Beside(const wchar_t* file);  // full path of a file in the folder of centre.exe
std::wstring LogFolder();
std::wstring LogFile();     // wsc.log in it
std::wstring OldLogFile();  // what wsc.log is renamed to when it is full

}  // namespace crv::standins
