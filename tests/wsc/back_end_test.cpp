#include "wsc/back_end.h"

#include <gtest/gtest.h>

namespace crv::wsc {
namespace {

TEST(BackEnd, TheComClassExistsFromVistaWithAServicePackOn) {
  struct Case {
    std::uint32_t major, minor, service_pack;
    bool isv;
  };
  const Case cases[] = {{5, 1, 3, false}, {5, 2, 2, false}, {6, 0, 0, false}, {6, 0, 1, true}, {6, 0, 2, true},
                        {6, 1, 0, true},  {6, 2, 0, true},  {6, 3, 0, true},  {7, 0, 0, true}, {10, 0, 0, true}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.isv, supports_isv(c.major, c.minor, c.service_pack)) << c.major << '.' << c.minor << " SP" << c.service_pack;
  }
}

}  // namespace
}  // namespace crv::wsc
