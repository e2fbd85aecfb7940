// Turns the kernel's names of files ("\Device\HarddiskVolume2\dir\file") into paths that Win32 functions take. Every search of a
// volume asks the machine for all of them, which can touch slow drives. Failures throw `crv::exceptions::error` with the codes
// and texts given here. No state; any thread.
//
// A device prefix is recognised without regard to case (under the C runtime's current locale) but replaced only where it stands
// in the very case that the system uses.
#pragma once

#include <string>

namespace crv::root {

// A DOS or UNC path, or a volume-GUID path when the volume is mounted nowhere. "\Device\LanmanRedirector\" and "\Device\Mup\"
// become "\\", "\SystemRoot\" becomes the Windows folder, every other device its volume's first mount point. An empty path
// throws with code 87 and an empty text; otherwise as GetKnownFolderPath and the two functions below.
std::wstring NtPathToWin32Path(const std::wstring& path);

// "\\?\Volume{GUID}\" and the path on the volume. Throws
// - the last error, "Unable to enumerate volumes!";
// - 3 when the path lies on no volume, or the error that ended the search before all volumes were seen,
//   "Unable to convert NT path '%ls' to a volume GUID path!" with the path.
std::wstring NtPathToVolumeGuidPath(const std::wstring& path);

// The path below the first place where its volume is mounted; the path itself when there is none. Throws the last error,
// "Unable to retrieve volume paths for volume '%ls'!" with the path's "\\?\Volume{GUID}\" part.
std::wstring VolumeGuidPathToWin32Path(const std::wstring& path);

}  // namespace crv::root
