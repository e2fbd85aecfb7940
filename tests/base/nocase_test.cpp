#include "base/nocase.h"

#include <gtest/gtest.h>

#include "base/command_line.h"
#include "support/thrown.h"

namespace crv {
namespace {

using nocase::kNoMaximum;
using nocase::kUntilNul;

// Folds as the locales of some countries do, beyond the letters of ASCII.
class Folding : public std::ctype<wchar_t> {
  wchar_t do_tolower(wchar_t c) const override { return c == L'\u017D' ? L'\u017E' : std::ctype<wchar_t>::do_tolower(c); }
};

TEST(Nocase, ComparesByItsTable) {
  const std::locale classic = std::locale::classic(), other(classic, new Folding);
  const struct {
    const wchar_t *left, *right;
    int expected;
    std::uint32_t maximum = kNoMaximum, length = kUntilNul;
  } cases[] = {
      {L"", L"", 0},
      {L"Update", L"uPDATE", 0},
      {L"a", L"B", -1},
      {L"B", L"a", 1},
      {L"Z", L"[", 1},   // 'z' stands behind '[', 'Z' before it
      {L"@", L"`", -1},  // neighbours of A to Z are not folded
      {L"{", L"[", 1},
      {L"ab", L"abc", -1},
      {L"abc", L"ab", 1},
      {L"abX", L"abY", 0, 2},  // the maximum ends it first
      {L"ab", L"abc", 0, 2},
      {L"ab", L"abc", -1, 3},  // the maximum is greater than the shorter length
      {L"x", L"y", 0, 0},
      {L"abZ", L"ABy", 0, kNoMaximum, 2},
      {L"a\0b", L"A\0c", -1, kNoMaximum, 3},  // given lengths reach behind a NUL
      {L"a\0b", L"A\0c", 0},
  };
  for (const auto& c : cases) {
    for (const std::locale& locale : {classic, other}) {
      EXPECT_EQ(c.expected, nocase::compare(c.left, c.length, c.right, c.length, c.maximum, locale)) << "row " << (&c - cases);
    }
  }
  EXPECT_EQ(-1, nocase::compare(L"\u017Da", 2, L"\u017EA", 2, kNoMaximum, classic));
  EXPECT_EQ(0, nocase::compare(L"\u017Da", 2, L"\u017EA", 2, kNoMaximum, other));
  const std::locale before = std::locale::global(other);
  const nocase::Less less;
  CommandLine line;
  std::locale::global(before);
  EXPECT_FALSE(less(L"\u017D", L"\u017E")) << "under the global locale of its construction";
  line.parse(L"p /\u017D:1 /\u017E:2");
  EXPECT_TRUE(line.has(L"\u017E") && line.value(L"\u017D") == L"2" && line.switches().size() == 1) << "a command line likewise";
  EXPECT_EQ("fatal 00000057 nocase::compare left nullparam",
            test::Thrown([&] { nocase::compare(nullptr, 0, nullptr, 0, 0, classic); }));
  EXPECT_EQ("fatal 00000057 nocase::compare right nullparam",
            test::Thrown([&] { nocase::compare(L"", 0, nullptr, 0, 0, classic); }));
}

}  // namespace
}  // namespace crv
