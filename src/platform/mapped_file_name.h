// The file behind a mapped image. Wine 8 answers GetMappedFileNameW with the DOS device form ("\??\C:\dir\file") where Windows names
// the volume's device ("\Device\HarddiskVolume1\dir\file"); that form is turned into the documented one here. An answer of Windows
// stays as it is.
#pragma once

#include <windows.h>

namespace crv::platform {

// `length` is the answer of GetMappedFileNameW that filled `name`, a buffer of `size` characters. The result is the length of the
// documented name; 0 is a failure with the thread's last error.
[[nodiscard]] DWORD DocumentMappedFileName(DWORD length, wchar_t* name, DWORD size);

}  // namespace crv::platform
