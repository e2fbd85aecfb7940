#include "instup/settings_tree.h"

#include <gtest/gtest.h>

namespace crv::instup {
namespace {

using std::string_literals::operator""s;

// The directory name as the installer's record reads it.
std::wstring Name(const std::wstring& text) { return SettingsTree::Parse(text).Text(L"Common", L"NewDirectoryName", L"New"); }

TEST(SettingsTree, ReadsLinesAsTheInstallerWritesThem) {
  const struct {
    const wchar_t* text;
    const wchar_t* name;
  } cases[] = {
      {L"", L"New"},
      {L"[Common]\r\nNewDirectoryName=New_1\r\n", L"New_1"},
      {L"[Common]\nNewDirectoryName=New_1", L"New_1"},
      {L"[common]\nNEWDIRECTORYNAME=New_1", L"New_1"},
      {L"[Common]\nNewDirectoryName=", L""},
      {L"[Common]\nNewDirectoryName=a=b", L"a=b"},
      {L"[Common]\nNewDirectoryName=New_1 ; no comment", L"New_1 ; no comment"},
      {L"[Common]\nNewDirectoryName= New_1\t", L" New_1\t"},
      {L"[Common]\nNewDirectoryName =New_1", L"New"},
      {L"[Common]\n NewDirectoryName=New_1", L"New"},
      {L"[Common]\nNewDirectoryName=1\nNewDirectoryName=2", L"2"},
      {L"[Common]\nnewdirectoryname=1\n[Other]\n[COMMON]\nNewDirectoryName=2", L"2"},
      {L"[Common]\r\nNewDirectoryName=New_1\r\r\n", L"New_1\r"},  // one carriage return alone belongs to the line's end
      {L"[Common]\rNewDirectoryName=New_1", L"New"},
      {L"NewDirectoryName=New_1\n[Common]", L"New"},  // before the first section
      {L"[Common]\n;NewDirectoryName=New_1\n#NewDirectoryName=New_2", L"New"},
      {L"[Common]\n ;NewDirectoryName=1\nNewDirectoryName=2", L"2"},
      {L"[Common]\nNewDirectoryName\n\nnothing", L"New"},
      {L"[Common] \nNewDirectoryName=New_1", L"New"},  // no section: a line without "="
      {L"[ Common]\nNewDirectoryName=New_1", L"New"},
      {L"[Common]\n[a=b]\nNewDirectoryName=New_1", L"New"},  // a section all the same
      {L"[Common]\n[\nNewDirectoryName=New_1", L"New_1"},    // "[" alone opens none
      {L"[Common]\n[]\nNewDirectoryName=New_1", L"New"},     // the section without a name
      {L"[Common.x]\nNewDirectoryName=New_1", L"New"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.name, Name(c.text)) << testing::PrintToString(std::wstring(c.text));
  EXPECT_EQ(L"a\0b"s, Name(L"[Common]\nx\0=1\nNewDirectoryName=a\0b\n"s));
}

TEST(SettingsTree, ADottedSectionIsAChainThatMeetsKeys) {
  SettingsTree tree = SettingsTree::Parse(L"[a.b.C]\nkey=1\n[a]\nb=2\n[.]\nx=3\n[]\ny=4");
  EXPECT_EQ(L"1", tree.Text(L"A.B.c", L"KEY", L"-"));
  EXPECT_EQ(L"2", tree.Text(L"a", L"b", L"-")) << "a key and a section of one name are one node";
  EXPECT_EQ(L"", tree.Text(L"a.b", L"c", L"-")) << "a section is a node without a text";
  EXPECT_EQ(L"3", tree.Text(L".", L"x", L"-"));
  EXPECT_EQ(L"4", tree.Text(L"", L"y", L"-"));
  EXPECT_EQ(L"-", tree.Text(L"a.b", L"key", L"-"));
  EXPECT_EQ(L"-", tree.Text(L"new.path", L"key", L"-"));
  EXPECT_EQ(L"", tree.Text(L"new", L"path", L"-")) << "made on the way of the read before";
}

TEST(SettingsTree, SizeAndDepthAreNoDanger) {
  std::wstring text = L"[Common]\n";
  for (int i = 0; text.size() < 500'000; ++i) text += L"key" + std::to_wstring(i) + L"=" + std::to_wstring(i) + L"\n";
  SettingsTree tree = SettingsTree::Parse(text + L"NewDirectoryName=last\n[" + std::wstring(200'000, L'.') + L"]\ndeep=1");
  EXPECT_EQ(L"last", tree.Text(L"common", L"newdirectoryname", L"-"));
  EXPECT_EQ(L"7777", tree.Text(L"common", L"KEY7777", L"-"));
  EXPECT_EQ(L"1", tree.Text(std::wstring(200'000, L'.'), L"deep", L"-"));
  tree = SettingsTree();
  EXPECT_EQ(L"-", tree.Text(L"common", L"newdirectoryname", L"-"));
}

}  // namespace
}  // namespace crv::instup
