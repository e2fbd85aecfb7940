// What the sweep tells a host that it starts, and what the host answers: one block of memory that both have mapped. The host writes
// it from the first instruction of wsc.dll on until its process ends, so that it tells of a crash as well.
#pragma once

#include <windows.h>

namespace crv::sweep {

// The environment variable with the name of the section; a host that was started without it only runs its command line.
inline constexpr wchar_t kSectionVariable[] = L"CRV_SWEEP_SECTION";

inline constexpr DWORD kMostFunctions = 400;
inline constexpr DWORD kMostFrames = 48;
inline constexpr DWORD kMostUnlisted = 2048;  // characters

enum class After : DWORD { end, crash };

// `guard` is the first part of a run, in which the process gets its crash guard; `request` begins with the start of COM.
enum class Phase : DWORD { load, guard, request, after };
inline constexpr DWORD kPhases = 4;

// How often a function was called until the end of each phase.
struct Counted {
  char name[64];
  LONG calls;
  LONG calls_before[kPhases];  // each phase
};

struct ControlBlock {
  // For the host.
  wchar_t command_line[1024];
  After after;            // what the host does when `run` has returned
  BOOL twice;             // `run` is called a second time
  BOOL pretend_ordinary;  // CheckTokenMembership says that the user is no administrator
  char function[64];      // the call that fails; empty: none
  LONG call;              // the number of it, from 1
  DWORD code;

  // From the host.
  Phase phase;
  BOOL loaded;
  BOOL returned;
  DWORD load_error;
  DWORD result;
  LONG hits;                  // 1 when the call was made to fail
  Phase hit_in;               // in which phase
  wchar_t text[260];          // what the failing call was about
  DWORD frames[kMostFrames];  // addresses in wsc.dll, from its start, innermost first
  DWORD handles_first;        // the same before the second call
  DWORD handles;              // of the process, when `run` has returned
  DWORD threads;
  DWORD milliseconds;  // that load and `run` took
  LONG functions;
  Counted counted[kMostFunctions];
  char unlisted[kMostUnlisted];  // functions that stand in no list, each with a blank behind it
};

}  // namespace crv::sweep
