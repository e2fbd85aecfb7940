// Puts itself between wsc.dll and everything that it calls: a piece of code for each function counts the call and goes on to the
// function, or returns at once as the function does when it fails. Works from the library's first instruction on, in crashes, on
// every thread, and takes no memory.
#pragma once

#include "sweep/control_block.h"

namespace crv::sweep {

// Before wsc.dll is loaded. `block` outlives the process.
void InstallHooks(ControlBlock& block);

// Between phases.
void EnterPhase(Phase phase);

// The code that stands for the function from now on. `original` is where calls go on; `counted` says whether a call from outside of
// wsc.dll counts as well. The function itself when it cannot fail.
void* Hooked(const char* name, void* original, bool from_library_only);

}  // namespace crv::sweep
