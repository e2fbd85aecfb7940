#include "base/nocase.h"

#include <gtest/gtest.h>

#include "support/thrown.h"

namespace crv {
namespace {

using nocase::kNoMaximum;
using nocase::kUntilNul;

// Folds the Greek capitals as well, so it stands for any locale that folds more than ASCII.
class GreekCtype : public std::ctype<wchar_t> {
 protected:
  wchar_t do_tolower(wchar_t c) const override {
    return c >= 0x391 && c <= 0x3A9 ? static_cast<wchar_t>(c + 0x20) : std::ctype<wchar_t>::do_tolower(c);
  }
};

const std::locale& Classic() { return std::locale::classic(); }
std::locale Greek() { return std::locale(std::locale::classic(), new GreekCtype); }

TEST(NocaseCompare, FollowsItsTable) {
  struct Case {
    const wchar_t* left;
    std::uint32_t left_length;
    const wchar_t* right;
    std::uint32_t right_length;
    std::uint32_t maximum;
    int classic;
    int greek;
  };
  const Case cases[] = {
      {L"", kUntilNul, L"", kUntilNul, kNoMaximum, 0, 0},
      {L"Update", kUntilNul, L"uPDATE", kUntilNul, kNoMaximum, 0, 0},
      {L"a", kUntilNul, L"B", kUntilNul, kNoMaximum, -1, -1},
      {L"B", kUntilNul, L"a", kUntilNul, kNoMaximum, 1, 1},
      {L"Z", kUntilNul, L"[", kUntilNul, kNoMaximum, 1, 1},     // 'z' stands behind '[', 'Z' before it
      {L"@", kUntilNul, L"`", kUntilNul, kNoMaximum, -1, -1},   // neighbours of A to Z are not folded
      {L"{", kUntilNul, L"[", kUntilNul, kNoMaximum, 1, 1},
      {L"\x3A3", kUntilNul, L"\x3C3", kUntilNul, kNoMaximum, -1, 0},
      {L"ab", kUntilNul, L"abc", kUntilNul, kNoMaximum, -1, -1},
      {L"abc", kUntilNul, L"ab", kUntilNul, kNoMaximum, 1, 1},
      {L"abX", kUntilNul, L"abY", kUntilNul, 2, 0, 0},          // the maximum ends it first
      {L"ab", kUntilNul, L"abc", kUntilNul, 2, 0, 0},
      {L"ab", kUntilNul, L"abc", kUntilNul, 3, -1, -1},         // the maximum is greater than the shorter length
      {L"x", kUntilNul, L"y", kUntilNul, 0, 0, 0},
      {L"abZ", 2, L"ABy", 2, kNoMaximum, 0, 0},
      {L"a\0b", 3, L"A\0c", 3, kNoMaximum, -1, -1},             // given lengths reach behind a NUL
      {L"a\0b", kUntilNul, L"A\0c", kUntilNul, kNoMaximum, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    EXPECT_EQ(c.classic, nocase::compare(c.left, c.left_length, c.right, c.right_length, c.maximum, Classic()));
    EXPECT_EQ(c.greek, nocase::compare(c.left, c.left_length, c.right, c.right_length, c.maximum, Greek()));
  }
}

TEST(NocaseLess, KeepsTheGlobalLocaleOfItsConstruction) {
  const std::locale before = std::locale::global(Greek());
  const nocase::Less greek;
  std::locale::global(before);
  EXPECT_FALSE(greek(L"\x3A3", L"\x3C3"));
  EXPECT_TRUE(nocase::Less()(L"\x3A3", L"\x3C3"));
}

TEST(NocaseCompare, RefusesNullStrings) {
  EXPECT_EQ("fatal 00000057 nocase::compare left nullparam",
            test::Thrown([] { nocase::compare(nullptr, 0, nullptr, 0, 0, Classic()); }));
  EXPECT_EQ("fatal 00000057 nocase::compare right nullparam",
            test::Thrown([] { nocase::compare(L"", 0, nullptr, 0, 0, Classic()); }));
}

}  // namespace
}  // namespace crv
