// Lets a supervising process learn that this one is ending, and hold it meanwhile. Runs on the thread that ends the process or
// frees the library, under the loader's lock.
#pragma once

namespace crv::crashguard {

// An exit handler. When the environment variable CRV_CRASH_SIGNAL_EVENT holds the handle of an inherited event, as ten characters
// such as 0x000001A4, it sets the event and never comes back: the supervisor ends the process. Otherwise it does nothing.
void CrashSignalAtExit();

}  // namespace crv::crashguard
