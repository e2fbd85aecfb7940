// Plays one step and sees what it left.
#pragma once

#include "tour/scenario.h"

namespace crv::standins::tour {

struct Outcome {
  DWORD parent = 0;           // the id of what started the process
  std::string result = {};    // the exit code as "0x%08x", or what became of the process instead
  Lines log = {};             // "level tag: text"
  std::string log_text = {};  // the same as it stands in the file
  Lines calls = {};
  Lines leaves = {};
  Lines dumps = {};                           // as DumpLine gives them
  std::vector<std::wstring> dump_files = {};  // full paths
  Lines troubles = {};                        // what kept the step from being played as it stands
  DWORD duration = 0;                         // ms
};

// Gives what went wrong; empty when the machine is ready. The steps of the chapter cannot be played otherwise.
Lines PrepareMachine(const Chapter& chapter);
Lines LeaveMachineClean();

// Never throws: what goes wrong becomes a trouble. Bounded in time; a process that does not end is killed.
Outcome Play(const Step& step);

std::string Hex(DWORD number);
std::string DumpLine(const std::string& file_name, DWORD exception, const std::string& comment, const std::string& build);

}  // namespace crv::standins::tour
