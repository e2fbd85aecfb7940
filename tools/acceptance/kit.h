// The folder of the kit: contents.txt names every file in it. Failures throw crv::exceptions::error.
#pragma once

#include <string>
#include <vector>

namespace crv::acceptance {

std::wstring KitFolder();  // that of this program

// What keeps the kit from being run, one line for each file: missing, or held by somebody.
std::vector<std::wstring> Incomplete();

std::vector<std::wstring> SuiteFiles();    // full paths of what becomes the suite's program folder
std::vector<std::wstring> TestPrograms();  // full paths of the test programs, in the order in which they run

std::wstring SuiteFolder();  // where the suite is put

// Installs the suite. Gives what the system did not let the stand-ins do; empty: everything.
std::string Stage();

}  // namespace crv::acceptance
