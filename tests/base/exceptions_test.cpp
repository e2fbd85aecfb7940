#include "base/exceptions.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "base/format_message.h"
#include "support/thrown.h"

namespace crv::exceptions {
namespace {

using test::DescribeThrown;

TEST(Exceptions, CarryCodeAndMessageOfEveryForm) {
  static_assert(std::is_nothrow_copy_constructible_v<error> && std::is_nothrow_copy_constructible_v<fatal>);
  EXPECT_EQ("error ffffffff plain 7 narrow wide", DescribeThrown(error("plain %d %s %ls", 7, "narrow", L"wide")));
  EXPECT_EQ("error 00000000 zero is a code", DescribeThrown(error(0, "zero is a %s", "code")));
  EXPECT_EQ("error 00000057 ", DescribeThrown(error()));
  EXPECT_EQ("fatal ffffffff message alone", DescribeThrown(fatal("message %s", "alone")));
  EXPECT_EQ("fatal 8000000a bad action", DescribeThrown(fatal(0x8000000A, "bad %s", "action")));
  // "%s" of a wide format takes a wide string; the message is UTF-8.
  EXPECT_EQ("error 00000002 Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80",
            DescribeThrown(error(2, L"Gr\u00FC\u00DF %s %ls", L"\u20AC", L"\xD83D\xDE00")));
  EXPECT_EQ(L"\u20AC", FromUtf8("\xE2\x82\xAC"));
  // The "C" locale of the C runtime has no narrow form of this character, so the text cannot be formatted.
  EXPECT_EQ("error 00000003 ", DescribeThrown(error(3, "cannot load %ls", L"\u4E2D")));
  const std::wstring longest(32767, L'x');
  EXPECT_EQ(5u + 32767u, std::string(error(1, "run: %ls", longest.c_str()).what()).size());
}

}  // namespace
}  // namespace crv::exceptions
