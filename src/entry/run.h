// The library's one export. The host calls it once per process with its command line; everything happens inside the call, on the
// calling thread, which joins COM's multithreaded apartment for that long.
#pragma once

#include <cstdint>

// `command_line`: NUL-terminated; its first token is the host's program and never read as a switch. Returns 0 when the request
// was carried out; the code of the failure (an operating-system error, an HRESULT, 87 without a command line or a mode, 160 for
// wrong arguments of a mode, 5 for an untrusted parent, 0xFFFFFFFF for a failure without a code); 31 for any other standard
// exception. Every failure is logged under the context "run". Exceptions that are not standard exceptions leave the call.
//
// Before anything else the process gets its crash guard, which stays when the call returns: a system without a writer of
// minidumps (127) and a data folder that cannot be found fail the call even before a missing command line does (87). A crash
// guard that cannot be installed, for want of the log folder perhaps, is no failure.
extern "C" std::uint32_t __stdcall run(const wchar_t* command_line);
