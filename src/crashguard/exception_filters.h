// What the crash guard hooks into the process. Both run on the thread that raised the exception, throw nothing, and use the
// process-wide crash guard; where there is none (any more) they leave the exception alone.
#pragma once

#include <windows.h>

namespace crv::crashguard {

// The unhandled-exception filter. Dumps the first crash of the process, one thread at a time, and ends the process itself while
// the system shuts down or under a service account; otherwise the system's own crash handling follows. A console control thread
// that the system started at another process's address of kernel32!CtrlRoutine is repaired instead and goes on.
LONG WINAPI TopLevelExceptionFilter(EXCEPTION_POINTERS* exception);

// Sees every exception before its handlers do and dumps throws of crv::exceptions::fatal, within the dump limit. The raise of one
// that nobody caught is left to the filter. Never stops the search; exceptions raised while it works on the same thread are left
// alone.
LONG WINAPI VectoredExceptionHandler(EXCEPTION_POINTERS* exception);

// Comes back when no other thread is in the filter: what ends the process calls it, so that another thread's dump is not lost.
void AwaitFilter();

}  // namespace crv::crashguard
