// Everything but the crash guard, whose rows are in guard_bench.cpp.
#include <cstdio>

#include "bench.h"

int main() {
  std::printf("%-64s %15s %15s %8s\n", "what (medians)", "module", "bare", "ratio");
  crv::bench::CommandLineRows();
  crv::bench::SystemRows();
  crv::bench::SettingsRows();
  crv::bench::RequestRows();
}
