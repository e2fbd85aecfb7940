// Where the system keeps its known folders. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::root {

// The folder's current path as the shell tells it. `csidl` is a CSIDL value, with CSIDL flags in bits 8 to 15 if wanted. When the
// shell fails or says that the folder does not exist (S_FALSE), the Windows folder is asked from the system, and the common
// application-data folder is read from the registry: as it stands there, cut at 260 characters and not looked at any further. Throws
// `crv::exceptions::error` with "Unable to retrieve a path of the known folder (%d)!" and the last error of that second attempt
// (ERROR_MORE_DATA for a Windows folder over 260 characters), for other folders the shell's HRESULT (1 for S_FALSE).
std::wstring GetKnownFolderPath(std::uint32_t csidl);

}  // namespace crv::root
