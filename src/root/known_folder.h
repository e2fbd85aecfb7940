// Where the system keeps its known folders. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::root {

// The folder's current path without a trailing backslash (but for a drive's root). `csidl` is a CSIDL value, with CSIDL flags in
// bits 8 to 15 if wanted. When the shell does not answer, the Windows folder is asked from the system and the common
// application-data folder is read from the registry. Throws `crv::exceptions::error` with the last error of that second attempt
// (ERROR_MORE_DATA for a path over 260 characters), for other folders with the shell's HRESULT, and with
// "Unable to retrieve a path of the known folder (%d)!".
std::wstring GetKnownFolderPath(std::uint32_t csidl);

}  // namespace crv::root
