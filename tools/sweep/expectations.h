// What a run has to come to when a call of it failed.
#pragma once

#include <string>
#include <vector>

#include "sweep/documented.h"

namespace crv::sweep {

// What is not as it has to be, a line each; nothing when all is well.
std::vector<std::string> Complaints(const Trial& trial);

}  // namespace crv::sweep
