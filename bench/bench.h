// Rows of the benchmark: each measures one piece of the product beside the bare system calls for the same work, in turns within one
// run, so that the ratio holds on a busy machine too.
#pragma once

#include <functional>

namespace crv::bench {

// Runs both in turns `rounds` times and prints the medians in microseconds per call and their ratio.
void PrintRow(const char* name, int rounds, const std::function<void()>& ours, const std::function<void()>& bare);

void CommandLineRows();
void RequestRows();
void SystemRows();
void SettingsRows();

}  // namespace crv::bench
