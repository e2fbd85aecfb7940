// The machine as the stand-ins' tables show it, and what changes there.
#pragma once

#include <vector>

#include "shared/area.h"
#include "tour/scenario.h"

namespace crv::standins::tour {

// The tables of all areas at one moment.
class Stage {
 public:
  Stage();

  // The rows of this one that the earlier one does not have, as "cell | cell"; and "name | gone" for what has no row any more.
  // A cell without a value is "-", and left out at the end of a row.
  Lines ChangesSince(const Stage& earlier) const;

 private:
  std::vector<Table> tables_;  // in the order of the areas
};

// What the stand-ins were asked for, area by area. An answer 0 is left out.
Lines Calls();
void ForgetCalls();

}  // namespace crv::standins::tour
