// Plays one case of the matrix and sees what it left.
#pragma once

#include <string>
#include <vector>

#include "matrix/cases.h"

namespace crv::standins::matrix {

struct Outcome {
  Lines differences;                // from what the case says; empty: it came out so
  std::vector<std::wstring> dumps;  // full paths, oldest first
};

// Never throws: what goes wrong becomes a difference. Bounded in time; a process that does not end is killed.
Outcome Play(const Case& played);

// Where the cases put what they leave: a folder below the log folder with one for each case. Emptied. Failures throw
// crv::exceptions::error.
std::wstring EmptyShelf();

void LeaveMachineClean();

}  // namespace crv::standins::matrix
