// The one table of tests that cannot hold on every Windows.
#pragma once

#include <string>
#include <vector>

#include "acceptance/machine.h"

namespace crv::acceptance {

// Why the test cannot hold on a machine with these traits; empty when it can. The name is PROGRAM.TEST, "wsc_tests.Watcher.Ends".
std::string WhyNot(const std::string& name, const std::vector<Trait>& traits);

}  // namespace crv::acceptance
