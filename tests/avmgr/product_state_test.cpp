#include "avmgr/product_state.h"

#include <gtest/gtest.h>

#include "support/thrown.h"

namespace crv::wsc {
namespace {

// What the right words mean shows in whole runs of the host.
TEST(ProductStateWords, AnyOtherWordIsRefusedAndNamed) {
  for (const std::wstring word : {L"", L"On", L"on ", L"o", L"onn", L"expired"}) {
    const std::string text(word.begin(), word.end());
    EXPECT_EQ("fatal 000000a0 to_prod_state " + text, test::Thrown([&] { return to_prod_state(word); }));
    EXPECT_EQ("fatal 000000a0 to_signature_status " + text, test::Thrown([&] { return to_signature_status(word); }));
  }
  EXPECT_NE("nothing", test::Thrown([] { return to_prod_state(std::wstring(L"on\0x", 4)); })) << "the whole word counts";
}

}  // namespace
}  // namespace crv::wsc
