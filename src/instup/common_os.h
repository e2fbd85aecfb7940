// The start-up of the common OS library: a process-wide state with a reference count. The first reference initialises the
// optional-function table (root/optional_functions.h) and settles the library's folders (library_folders.h); the last release
// undoes that, except that settled folders stay for the next time.
//
// The very first call of CmnOsInitialize makes the critical section that guards all later calls, so it must not race with another
// first call. After that any thread may call. All functions leave their result in the thread's last error; none throws.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace crv::instup {

// Takes a reference. `flags` are those of root::OptionalTableInit. Returns 0, or the error code of the step that failed (8 when
// memory runs out), after which no reference is held.
[[nodiscard]] DWORD CmnOsInitialize(std::uint32_t flags);

// Gives a reference back. Returns 0. Without a reference it does nothing.
DWORD CmnOsUninitialize();

// The library's program folder, as settled by the first initialisation; empty before it. The reference stays valid. Read it
// while holding a reference on the library.
const std::wstring& CmnOsProgramFolder();

}  // namespace crv::instup
