// One run of sweep_host.exe and everything that can be seen of it afterwards.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "sweep/control_block.h"

namespace crv::sweep {

// Which call fails, and how. No name: none.
struct Fault {
  std::string function;
  LONG call = 0;
  DWORD code = 0;
};

struct Request {
  std::wstring command_line;  // for `run`
  After after = After::end;
  bool pretend_ordinary = false;
  bool twice = false;
};

struct Outcome {
  ControlBlock block;
  DWORD exit_code = 0;
  bool timed_out = false;
  std::vector<std::string> records;      // "level tag text", from wsc.log and from the standard error output
  std::vector<std::string> run_records;  // the text behind "run: " of those
  std::size_t dumps = 0;
  std::size_t empty_dumps = 0;
  std::vector<std::wstring> left_programs;
};

// Removes the log and the dumps first. A host that does not end within `limit` ms is killed, with the programs that it started.
Outcome RunHost(const Request& request, const Fault& fault, DWORD limit);

}  // namespace crv::sweep
