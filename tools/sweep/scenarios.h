// What the suite is asked for in the sweep, and on which stage.
#pragma once

#include <string>
#include <vector>

#include "sweep/run_host.h"

namespace crv::sweep {

struct Scenario {
  const char* name;
  const wchar_t* windows;
  std::vector<const wchar_t*> stage = {};  // commands of the stand-ins, and requests behind "run ", once
  std::vector<const wchar_t*> each = {};   // commands before each run
  Request request;
  DWORD result = 0;              // without a fault
  std::size_t dumps = 0;         // that it leaves
  Phase first = Phase::request;  // the calls of earlier and later phases are not made to fail; other scenarios do that
  Phase last = Phase::after;
};

const std::vector<Scenario>& Scenarios();

}  // namespace crv::sweep
