// The crash matrix: every way in which a guarded host is crashed, and everything that it must leave. A case is one process, most of
// them of crasher.exe.
//
// In `log`, `printed` and `name_of_dump` "*" stands for any text; {folder} in `words` is the folder of the case.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "shared/lines.h"

namespace crv::standins::matrix {

inline constexpr DWORD kViolation = EXCEPTION_ACCESS_VIOLATION;

struct Case {
  std::string name;
  std::string words;              // the case of crasher.exe and its options; or "run" and a request to wsc_proxy.exe
  std::vector<DWORD> exits = {};  // the whole exit code, or those that are possible; none: that of the exception
  Lines log = {};                 // the crash guard's records, "level text"
  Lines dumps = {};               // the comment of each dump, in the order in which they were written
  DWORD code = kViolation;        // in each dump
  std::string function = {};      // what a debugger must see innermost of ours, "function at file:line" as a regular expression;
                                  // empty: nobody looks
  std::string outermost = "main at main\\.cpp:\\d+";  // and outermost
  Lines printed = {"install 0"};
  Lines before = {};      // commands, as they are given to centre.exe
  int notices = -1;       // fatal-dump notices that the self-protection driver gets; -1: there is no driver
  bool full = false;      // the dump has the full memory
  bool handled = false;   // the process ends before the system's own crash handling
  bool exception = true;  // the dump has an exception stream
  bool throws = false;    // the innermost frame stands on a line that throws
  bool own_folder =
      true;  // for log and dumps; the module itself takes the suite's log folder, and one process in 256 has the full memory
  std::string name_of_dump = "unp*.mdmp";
  std::string below = "";  // the folder of the dumps, from that of the case
};

const std::vector<Case>& Cases();

}  // namespace crv::standins::matrix
