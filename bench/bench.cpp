#include "bench.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace crv::bench {
namespace {

double Measure(const std::function<void()>& work) {
  LARGE_INTEGER frequency, start, end;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&start);
  work();
  QueryPerformanceCounter(&end);
  return 1e6 * static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart);
}

double Median(std::vector<double>& values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

}  // namespace

void PrintRow(const char* name, int rounds, const std::function<void()>& ours, const std::function<void()>& bare) {
  std::vector<double> our_times, bare_times;
  for (int i = 0; i < rounds; ++i) {
    our_times.push_back(Measure(ours));
    bare_times.push_back(Measure(bare));
  }
  const double our_median = Median(our_times);
  const double bare_median = Median(bare_times);
  std::printf("%-64s %12.1f us %12.1f us %8.2f\n", name, our_median, bare_median, our_median / bare_median);
  std::fflush(stdout);
}

}  // namespace crv::bench
