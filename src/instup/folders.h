// The suite's fixed folders. Every call asks the system anew; nothing is checked or created. No state; any thread. The paths have
// no trailing backslash but for what the registry holds.
#pragma once

#include <string>

namespace crv::instup {

// Where the suite keeps its data: the common application data's "\CORVID Software\Corvid". Throws what
// root::GetKnownFolderPath throws.
std::wstring GetDataFolder();

// Where the suite keeps what outlives an uninstallation. Throws as GetDataFolder does.
std::wstring GetPersistentDataFolder();

// The suite's program folder as the installer wrote it into the registry's 32-bit view. Throws `crv::exceptions::error` with the
// error code of ReadFolderValue (folder_value.h) and "Unable to retrieve path of the program directory!".
std::wstring GetProgramFolder();

}  // namespace crv::instup
