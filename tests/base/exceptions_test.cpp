#include "base/exceptions.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "support/thrown.h"

namespace crv::exceptions {
namespace {

template <typename Exception>
std::string Describe(const Exception& exception) {
  return test::DescribeThrown(exception);
}

TEST(Exceptions, CarryCodeAndMessageOfEveryForm) {
  EXPECT_EQ("error ffffffff plain 7 narrow wide", Describe(error("plain %d %s %ls", 7, "narrow", L"wide")));
  EXPECT_EQ("error 00000005 denied", Describe(error(5, "denied")));
  EXPECT_EQ("error 00000000 zero is a code", Describe(error(0, "zero is a %s", "code")));
  EXPECT_EQ("error 8000000a still pending", Describe(error(0x8000000A, "still pending")));
  EXPECT_EQ("error 00000057 ", Describe(error()));
  EXPECT_EQ("fatal ffffffff message alone", Describe(fatal("message alone")));
  EXPECT_EQ("fatal 000000a0 bad action", Describe(fatal(kBadArguments, "bad action")));
}

TEST(Exceptions, WideFormatsBecomeUtf8) {
  // "%s" of a wide format takes a wide string.
  EXPECT_EQ("error 00000002 Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80", Describe(error(2, L"Gr\u00FC\u00DF %s %ls", L"\u20AC", L"\xD83D\xDE00")));
}

TEST(Exceptions, ATextThatCannotBeFormattedLeavesTheMessageEmptyAndKeepsTheCode) {
  // The "C" locale of the C runtime has no narrow form of this character.
  EXPECT_EQ("error 00000003 ", Describe(error(3, "cannot load %ls", L"\u4E2D")));
}

TEST(Exceptions, LongMessagesAreWhole) {
  const std::wstring text(32767, L'x');
  EXPECT_EQ(5u + 32767u, std::string(error(1, "run: %ls", text.c_str()).what()).size());
}

TEST(Exceptions, CopiesCannotFailAndKeepTheMessage) {
  static_assert(std::is_nothrow_copy_constructible_v<error> && std::is_nothrow_copy_constructible_v<fatal>);
  const error copy = [] {
    const error original(9, "kept");
    return error(original);
  }();
  EXPECT_EQ("error 00000009 kept", Describe(copy));
}

}  // namespace
}  // namespace crv::exceptions
