#include "avmgr/product_state.h"

#include <gtest/gtest.h>

#include "support/thrown.h"

namespace crv::wsc {
namespace {

TEST(ProductStateWords, AreTheirNumbersAndAnyOtherWordIsRefusedAndNamed) {
  int number = 0;
  for (const wchar_t* const word : {L"on", L"off", L"snoozed"}) EXPECT_EQ(number++, static_cast<int>(to_prod_state(word)));
  number = 0;
  for (const wchar_t* const word : {L"out_of_date", L"up_to_date"}) {
    EXPECT_EQ(number++, static_cast<int>(to_signature_status(word)));
  }
  for (const std::wstring word : {L"", L"On", L"on ", L"o", L"onn", L"expired"}) {
    const std::string text(word.begin(), word.end());
    EXPECT_EQ("fatal 000000a0 to_prod_state " + text, test::Thrown([&] { return to_prod_state(word); }));
    EXPECT_EQ("fatal 000000a0 to_signature_status " + text, test::Thrown([&] { return to_signature_status(word); }));
  }
  EXPECT_NE("nothing", test::Thrown([] { return to_prod_state(std::wstring(L"on\0x", 4)); })) << "the whole word counts";
}

}  // namespace
}  // namespace crv::wsc
