// What is documented for a call that fails, as rows: the first that fits a fault says what has to come of it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "sweep/run_host.h"

namespace crv::sweep {

struct Scenario;

struct Trial {
  const Scenario& scenario;
  const Fault& fault;
  const Outcome& normal;  // the same run without a fault
  const Outcome& outcome;
  std::vector<std::string> callers;  // functions of the library around the failing call, innermost first
};

enum class Kind {
  code,        // the result is the failing call's code, and one record of `run` has it
  fixed,       // the same with another code
  nothing,     // as if the call had not failed
  unrecorded,  // the same, but for the record of `run`
  either,      // nothing; or any code, with its record
  load,        // as if the call had not failed, or the host cannot load the library
  not_loaded,  // the host cannot load the library
  any,         // nothing is asked of the run itself
  held,        // the same, and it may wait for longer than it is given
  ended,       // the process ends with that code, and leaves a dump
};

inline constexpr DWORD kAnyCode = 0xFFFFFFF0;

// What few rows need.
struct Extra {
  DWORD code = kAnyCode;      // with which the call failed
  const char* scenario = "";  // part of its name
  const char* record = "";    // part of a record that the log has to hold
  bool repairs = false;       // the run leaves the machine in another good state than without the fault
  std::size_t fewer_dumps = 0;
  std::size_t more_dumps = 0;  // that there may be
};

struct Row {
  const char* function;  // empty: every one
  const char* caller;    // part of the name of one of the functions around the call
  const wchar_t* text;   // part of what the call was about
  Kind kind;
  DWORD value;  // of `fixed` and `ended`
  const char* reason;
  Extra extra = {};
};

const Row& Documented(const Trial& trial);

// What the record of `run` may say of the step that failed. More than one where the stack still holds frames of an earlier call.
std::vector<const char*> DocumentedSteps(const Trial& trial);

}  // namespace crv::sweep
