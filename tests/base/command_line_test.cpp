#include "base/command_line.h"

#include <gtest/gtest.h>

namespace crv {
namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Words = std::vector<std::wstring>;

CommandLine Parsed(const std::wstring& text) {
  CommandLine command_line;
  command_line.parse(text.c_str());
  return command_line;
}

Pairs SwitchesOf(const CommandLine& command_line) { return {command_line.switches().begin(), command_line.switches().end()}; }

TEST(CommandLine, ParsesByItsTable) {
  struct Case {
    const wchar_t* text;
    std::wstring program;
    Pairs switches;
    Words words;
  };
  const Case cases[] = {
      {L"", L"", {}, {}},
      {L" \t\r\n", L"", {}, {}},
      {L"\"", L"", {}, {}},
      {L"/svc", L"/svc", {}, {}},                                  // the first token is never a switch
      {L"  p /a", L"p", {{L"a", L""}}, {}},                        // leading blanks are no token
      {L"p /a /b:1 word", L"p", {{L"a", L""}, {L"b", L"1"}}, {L"word"}},
      {L"p\t/a\r\n/b \t ", L"p", {{L"a", L""}, {L"b", L""}}, {}},
      {L"\"C:\\a b\\p.exe\" /x", L"C:\\a b\\p.exe", {{L"x", L""}}, {}},
      {L"p /a:b:c /d: /", L"p", {{L"", L""}, {L"a", L"b:c"}, {L"d", L""}}, {}},
      {L"p /:v", L"p", {{L"", L"v"}}, {}},
      {L"p /n:\"two words\" \"/q r:s\"", L"p", {{L"n", L"two words"}, {L"q r", L"s"}}, {}},
      {L"p a\"\"b \"x\"\"y z\"", L"p", {}, {L"a\"b", L"x\"y z"}},
      {L"p \"open until the end /a", L"p", {}, {L"open until the end /a"}},
      {L"p /Name:1 /NAME:2 /b", L"p", {{L"b", L""}, {L"Name", L"2"}}, {}},
      {L"p w1 /s w2 - \\x", L"p", {{L"s", L""}}, {L"w1", L"w2", L"-", L"\\x"}},
      {L"p \"\"\"\" /\xD800:\xDC00", L"p", {{L"\xD800", L"\xDC00"}}, {L"\"\""}},  // lone surrogates pass as they are
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    const CommandLine command_line = Parsed(c.text);
    EXPECT_EQ(c.program, command_line.program());
    EXPECT_EQ(c.switches, SwitchesOf(command_line));
    EXPECT_EQ(c.words, command_line.words());
  }
}

TEST(CommandLine, FindsSwitchesWithoutRegardToCaseAndYieldsOneEmptyValue) {
  const CommandLine command_line = Parsed(L"p /State:on /Update");
  EXPECT_TRUE(command_line.has(L"STATE"));
  EXPECT_TRUE(command_line.has(L"update"));
  EXPECT_FALSE(command_line.has(L"p"));
  EXPECT_EQ(L"on", command_line.value(L"state"));
  EXPECT_EQ(L"", command_line.value(L"update"));
  EXPECT_EQ(&command_line.value(L"missing"), &Parsed(L"q").value(L"other"));
}

TEST(CommandLine, RebuildsTextByItsTable) {
  struct Case {
    std::wstring program;
    Pairs switches;
    const wchar_t* parsed_words;
    std::wstring arguments;
    std::wstring text;
  };
  const Case cases[] = {
      {L"", {}, L"", L"", L""},
      {L"p", {}, L"", L"", L"\"p\""},
      {L"", {{L"a", L""}}, L"", L"/a", L"/a"},
      {L"p", {{L"b c", L"x"}, {L"a", L""}}, L"w", L"/a \"/b c:x\" \"w\"", L"\"p\" /a \"/b c:x\" \"w\""},
      {L"q\"q", {{L"n", L"a\"b"}}, L"", L"\"/n:a\"\"b\"", L"\"q\"q\" \"/n:a\"\"b\""},  // the program's own quotes stay single
      {L"", {{L"t", L"a\tb"}}, L"\"a b\" c\"\"d", L"/t:a\tb \"a b\" \"c\"\"d\"", L"/t:a\tb \"a b\" \"c\"\"d\""},  // only blanks quote
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    CommandLine command_line = Parsed(std::wstring(L"ignored ") + c.parsed_words);
    command_line.set_program(c.program);
    for (const auto& [name, value] : c.switches) command_line.set(name, value);
    EXPECT_EQ(c.arguments, command_line.arguments());
    EXPECT_EQ(c.text, command_line.text());
  }
}

TEST(CommandLine, SetKeepsTheSpellingOfAPresentNameAndParsingAgainReplacesEverything) {
  CommandLine command_line = Parsed(L"p /Wait:1 w");
  command_line.set(L"WAIT", L"2");
  EXPECT_EQ(L"\"p\" /Wait:2 \"w\"", command_line.text());
  command_line.parse(L"");
  EXPECT_EQ(L"", command_line.text());
}

}  // namespace
}  // namespace crv
