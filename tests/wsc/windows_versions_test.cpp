#include <gtest/gtest.h>

#include "wsc/back_end.h"
#include "wsc/defender.h"
#include "wsc/legacy_wmi.h"

namespace crv::wsc {
namespace {

TEST(WindowsVersions, DecideWhatSecurityCenterOffers) {
  const struct {
    std::uint32_t major, minor, service_pack;
    bool isv, defender, antispyware;  // COM class, Defender is switched, WMI class
  } cases[] = {{5, 1, 3, false, true, false}, {5, 2, 2, false, true, false}, {6, 0, 0, false, true, true},
               {6, 0, 1, true, true, true},   {6, 0, 2, true, true, true},   {6, 1, 0, true, true, true},
               {6, 2, 0, true, false, true},  {6, 3, 0, true, false, true},  {7, 0, 0, true, false, true},
               {10, 0, 0, true, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.major << '.' << c.minor << " SP" << c.service_pack);
    EXPECT_EQ(c.isv, supports_isv(c.major, c.minor, c.service_pack));
    EXPECT_EQ(c.defender, defender_is_switched(c.major, c.minor));
    EXPECT_EQ(c.antispyware, wmi_has_antispyware(c.major));
    EXPECT_STREQ(c.antispyware ? L"root\\SecurityCenter2" : L"root\\SecurityCenter", wmi_namespace(c.major));
  }
}

}  // namespace
}  // namespace crv::wsc
