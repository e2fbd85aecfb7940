// Where the process looks for libraries that are loaded by name.
#pragma once

namespace crv::wsc {

// Takes the current folder out of the search for the rest of the process: a library that is missing where it belongs, such as
// crvData.dll, must not be taken from wherever the host happens to have been started. The other places and their order stay; a
// host that has put a folder of its own in the current folder's place keeps it.
//
// Not undone: the system does not tell whether the host had taken the current folder out before, and what was loaded meanwhile
// may load more later. Programs started from here may begin with the same search. Windows XP before Service Pack 1 cannot do it,
// which is no failure.
void LeaveCurrentFolderOutOfLibrarySearch();

}  // namespace crv::wsc
