// The name of the file behind a mapped image, as an NT path. Wine 8 answers GetMappedFileNameW with the DOS device form
// ("\??\C:\dir\file") where Windows names the volume's device ("\Device\HarddiskVolume1\dir\file"); that form is turned into
// the documented one here. An answer of Windows passes through unchanged.
#pragma once

#include <windows.h>

namespace crv::platform {

// As GetMappedFileNameW: `size` and the result are in characters; 0 is a failure with the thread's last error.
[[nodiscard]] DWORD MappedFileName(HANDLE process, void* address, wchar_t* name, DWORD size);

}  // namespace crv::platform
