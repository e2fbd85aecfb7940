#include "root/os_class.h"

#include <gtest/gtest.h>

namespace crv::root {
namespace {

TEST(OsClass, FollowsItsTableUpToTheBoundaries) {
  constexpr std::uint32_t k9x = 1, kNt = 2, kMax = 0xFFFFFFFF;
  const struct {
    std::uint32_t platform_id, major, minor, build;
    int expected;
  } cases[] = {
      {0, 3, 10, 0, 0},       {k9x, 5, 0, 2195, 0},   {3, 6, 1, 0, 0},         {k9x, 4, 0, 1110, 1},   {k9x, 4, 0, 1111, 2},
      {0, 4, 0, 0x40003B6, 2}, {k9x, 4, 89, 2221, 3}, {k9x, 4, 1, 2222, 4},    {k9x, 4, 89, kMax, 4},  {k9x, 4, 90, 0, 5},
      {kNt, 0, 0, 0, 10},     {kNt, 4, 90, 1381, 10}, {kNt, 5, 0, 2195, 11},   {kNt, 5, 1, 2600, 12},  {kNt, 5, kMax, 0, 12},
      {kNt, 6, 0, 6002, 13},  {kNt, 6, 1, 7601, 14},  {kNt, 6, 2, 9200, 15},   {kNt, 6, 3, 9600, 16},  {kNt, 6, 4, 9841, 17},
      {kNt, 7, 0, 0, 17},     {kNt, 10, 0, 22631, 17},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, ComputeOsClass(c.platform_id, c.major, c.minor, c.build)) << "row " << (&c - cases);
  }
}

}  // namespace
}  // namespace crv::root
