// The commands by which the stand-ins are worked, as a person gives them to centre.exe and a program to this function: those of
// every area and those that concern all areas.
#pragma once

#include <vector>

#include "shared/area.h"

namespace crv::standins {

std::vector<Command> Commands();

// Runs the command that the first word names. Throws UsageError for words that it does not understand, crv::exceptions::fatal for
// a script that cannot be, and crv::exceptions::error for every other failure.
void RunCommand(const Words& words);
void RunLine(const std::string& line);  // the same, as a person types it behind "centre" (UTF-8)

}  // namespace crv::standins
