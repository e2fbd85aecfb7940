// Calls no Windows function: the native build under the sanitizers runs it as well.
#include "root/os_class.h"

#include <gtest/gtest.h>

namespace crv::root {
namespace {

TEST(OsClass, FollowsItsTable) {
  const struct {
    std::uint32_t platform, major, minor, build;
    int expected;
  } cases[] = {
      {0, 3, 51, 0, 0}, {1, 4, 0, 1110, 1},  {1, 4, 0, 1111, 2},  {1, 4, 1, 2221, 3},      {1, 4, 89, 2222, 4},
      {1, 4, 90, 0, 5}, {2, 4, 0, 1381, 10}, {2, 5, 0, 2195, 11}, {2, 5, 1, 2600, 12},     {2, 5, 2, 3790, 12},
      {2, 6, 0, 0, 13}, {2, 6, 1, 0, 14},    {2, 6, 2, 0, 15},    {2, 6, 3, 0, 16},        {2, 6, 4, 0, 17},
      {2, 7, 0, 0, 17}, {2, 10, 0, 0, 17},   {1, 5, 0, 0, 0},     {1, 4, 0, 0x400045F, 2},  // the whole field counts
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.expected, ComputeOsClass(c.platform, c.major, c.minor, c.build)) << "row " << (&c - cases);
}

}  // namespace
}  // namespace crv::root
