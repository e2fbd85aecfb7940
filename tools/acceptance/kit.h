// The folder of the kit: contents.txt names every file in it. Failures throw crv::exceptions::error.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::acceptance {

std::wstring KitFolder();  // that of this program

// What keeps the kit from being run, one line for each file: missing, or held by somebody.
std::vector<std::wstring> Incomplete();

std::vector<std::wstring> TestPrograms();  // full paths of the installed test programs, in the order in which they run

std::wstring SuiteFolder();  // where the suite is put, and below it the test programs

// Installs the suite and the test programs; what is started from here on has its temporary files there, too, so that they go with it. Gives
// what the system did not let the stand-ins do; empty: everything. Returns when the event is set, too.
std::string Stage(HANDLE interrupt);

}  // namespace crv::acceptance
