// The library's one export. The host calls it once per process with its command line; everything happens inside the call, on the
// calling thread.
#pragma once

#include <cstdint>

// `command_line`: NUL-terminated; its first token is the host's program and never read as a switch. Returns 0 when the request
// was carried out or left nothing to do. Otherwise the failure's code: that of the system call, the COM call or the suite's
// component that failed, or the exit code of a program that was started; 87 without a command line or a mode, 160 for a mode's
// wrong arguments, 5 for an untrusted parent, 740 for a host that was restarted for nothing, 0xFFFFFFFF for a failure without a
// code, 31 for any other standard exception. Exceptions that are not standard exceptions leave the call.
//
// A failure is logged under the context "run", as far as the log library can: the log file is opened once COM is initialised, and
// what fails before that, the library may lose.
//
// First the current folder is taken out of the search for libraries, then the process gets its crash guard. A system without a
// writer of minidumps (127) and a data folder that cannot be found fail the call there, even before a missing command line does.
// A crash guard that cannot be installed, perhaps for want of the log folder, is no failure. The thread is in COM's multithreaded
// apartment while the request is carried out.
//
// The call waits until no other thread's crash is being dumped, since the host may end the process when it returns. Then the crash
// guard and the search without the current folder stay. So does this library, even if the host frees it, once a change in Security
// Center was noticed while its disabled service was waited for.
extern "C" std::uint32_t __stdcall run(const wchar_t* command_line);
