#include "base/command_line.h"

#include <gtest/gtest.h>

namespace crv {
namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Words = std::vector<std::wstring>;

TEST(CommandLine, ParsesByItsTable) {
  const struct {
    const wchar_t* text;
    std::wstring program;
    Pairs switches;
    Words words;
  } cases[] = {
      {L"", L"", {}, {}},
      {L" \t\r\n", L"", {}, {}},
      {L"\"", L"", {}, {}},
      {L"/svc", L"/svc", {}, {}},  // the first token is never a switch
      {L"  p\t/a\r\n/b:1 word \t ", L"p", {{L"a", L""}, {L"b", L"1"}}, {L"word"}},
      {L"\"C:\\a b\\p.exe\" /x", L"C:\\a b\\p.exe", {{L"x", L""}}, {}},
      {L"p /a:b:c /d: /", L"p", {{L"", L""}, {L"a", L"b:c"}, {L"d", L""}}, {}},
      {L"p /:v", L"p", {{L"", L"v"}}, {}},
      {L"p /n:\"two words\" \"/q r:s\"", L"p", {{L"n", L"two words"}, {L"q r", L"s"}}, {}},
      {L"p a\"\"b \"x\"\"y z\"", L"p", {}, {L"a\"b", L"x\"y z"}},
      {L"p \"open until the end /a", L"p", {}, {L"open until the end /a"}},
      {L"p /Name:1 /NAME:2 /b", L"p", {{L"b", L""}, {L"Name", L"2"}}, {}},  // the first spelling stays
      {L"p w1 /s w2 - \\x", L"p", {{L"s", L""}}, {L"w1", L"w2", L"-", L"\\x"}},
      {L"p \"\"\"\" /\xD800:\xDC00", L"p", {{L"\xD800", L"\xDC00"}}, {L"\"\""}},  // lone surrogates pass as they are
  };
  CommandLine line;  // parsing again replaces everything
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    line.parse(c.text);
    EXPECT_EQ(c.program, line.program());
    const auto switches = line.switches();
    EXPECT_EQ(c.switches, Pairs(switches.begin(), switches.end()));
    EXPECT_EQ(c.words, line.words());
  }
  line.parse(L"p /STATE:off /State:on /Update /states:x");
  EXPECT_TRUE(line.has(L"STATE") && line.has(L"update") && !line.has(L"p") && !line.has(L"updat") && !line.has(L"updates"));
  EXPECT_EQ(L"on", line.value(L"state"));
  EXPECT_EQ(L"", line.value(L"update"));
  EXPECT_EQ(L"", line.value(L"missing"));
}

TEST(CommandLine, RebuildsTextByItsTable) {
  const struct {
    std::wstring program;
    Pairs switches;
    std::wstring words;  // as they are parsed
    std::wstring arguments, text;
  } cases[] = {
      {L"", {}, L"", L"", L""},
      {L"p", {}, L"", L"", L"\"p\""},
      {L"", {{L"a", L""}}, L"", L"/a", L"/a"},
      {L"p", {{L"b c", L"x"}, {L"a", L""}, {L"A", L"2"}}, L"w", L"/a:2 \"/b c:x\" \"w\"", L"\"p\" /a:2 \"/b c:x\" \"w\""},
      {L"q\"q", {{L"n", L"a\"b"}}, L"", L"\"/n:a\"\"b\"", L"\"q\"q\" \"/n:a\"\"b\""},  // the program's own quotes stay single
      {L"",
       {{L"t", L"a\tb"}},
       L"\"a b\" c\"\"d",
       L"/t:a\tb \"a b\" \"c\"\"d\"",
       L"/t:a\tb \"a b\" \"c\"\"d\""},  // only blanks quote
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    CommandLine line;
    line.parse((L"ignored " + c.words).c_str());
    line.set_program(c.program);
    for (const auto& [name, value] : c.switches) line.set(name, value);
    EXPECT_EQ(c.arguments, line.arguments());
    EXPECT_EQ(c.text, line.text());
  }
}

}  // namespace
}  // namespace crv
