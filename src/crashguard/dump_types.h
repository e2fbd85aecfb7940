// What goes into a minidump, as bits of MINIDUMP_TYPE: which a first attempt asks for, and what the next ones leave out. No
// state.
#pragma once

#include <windows.h>
#include <dbghelp.h>

namespace crv::crashguard {

inline constexpr unsigned kThreadInformation = MiniDumpWithUnloadedModules | MiniDumpWithIndirectlyReferencedMemory |
                                               MiniDumpWithProcessThreadData | MiniDumpWithThreadInfo |
                                               MiniDumpWithTokenInformation;
inline constexpr unsigned kWholeMemory = MiniDumpWithFullMemory | MiniDumpWithFullMemoryInfo;
static_assert(kThreadInformation == 0x41160 && kWholeMemory == 0x802);

// What a dump loses when an attempt to write it failed.
inline constexpr unsigned kLostByAttempt[] = {
    MiniDumpWithTokenInformation | MiniDumpWithThreadInfo | MiniDumpWithFullMemoryInfo,
    MiniDumpWithProcessThreadData | MiniDumpWithIndirectlyReferencedMemory | MiniDumpWithUnloadedModules,
};
static_assert(kLostByAttempt[0] == 0x41800 && kLostByAttempt[1] == 0x160);

// `version` as GetVersion gives it: handle data makes the writer of Windows 2000 and XP unreliable.
constexpr unsigned DumpType(DWORD version, bool full) {
  const unsigned base = LOBYTE(version) == 5 ? 0u : unsigned{MiniDumpWithHandleData};
  return base | kThreadInformation | (full ? kWholeMemory : 0u);
}

}  // namespace crv::crashguard
