// Calls no Windows function: the native build under the sanitizers runs it as well.
#include "instup/settings_tree.h"

#include <gtest/gtest.h>

namespace crv::instup {
namespace {

using std::string_literals::operator""s;

TEST(SettingsTree, ReadsLinesAsTheInstallerWritesThem) {
  const struct {
    std::wstring text, name;  // the directory name as the installer's record reads it
  } cases[] = {
      {L"[Common]\r\nNewDirectoryName=New_1\r\n", L"New_1"},
      {L"[common]\nNEWDIRECTORYNAME=New_1", L"New_1"},
      {L"[Common]\nNewDirectoryName= a=b ; no comment\t", L" a=b ; no comment\t"},
      {L"[Common]\nNewDirectoryName =New_1\n NewDirectoryName=New_2", L"New"},
      {L"[Common]\nnewdirectoryname=1\n[Other]\n[COMMON]\nNewDirectoryName=2", L"2"},
      {L"[Common]\r\nNewDirectoryName=New_1\r\r\n", L"New_1\r"},  // one carriage return alone belongs to the line's end
      {L"NewDirectoryName=New_1\n[Common]", L"New"},              // before the first section
      {L"[Common]\n;NewDirectoryName=New_1\n#NewDirectoryName=New_2", L"New"},
      {L"[Common] \nNewDirectoryName=New_1", L"New"},        // no section: a line without "="
      {L"[Common]\n[a=b]\nNewDirectoryName=New_1", L"New"},  // a section all the same
      {L"[Common]\n[\nNewDirectoryName=New_1", L"New_1"},    // "[" alone opens none
      {L"[Common!\nNewDirectoryName=New_1", L"New"},         // and neither does one without its end
      {L"[Common]\nx\0=1\nNewDirectoryName=a\0b\n"s, L"a\0b"s},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.name, SettingsTree::Parse(c.text).Text(L"Common", L"NewDirectoryName", L"New")) << "row " << (&c - cases);
  }
}

TEST(SettingsTree, ADottedSectionIsAChainThatMeetsKeysHoweverDeep) {
  const std::wstring deep(200'000, L'.');
  SettingsTree tree = SettingsTree::Parse(L"[a.b.C]\nkey=1\n[a]\nb=2\n#b=2\n[.]\nx=3\n[]\ny=4\n[" + deep + L"]\nz=5");
  const struct {
    std::wstring section, key, expected;
  } cases[] = {
      {L"A.B.c", L"KEY", L"1"}, {L"a", L"b", L"2"},   // a key and a section of one name are one node
      {L"a", L"#b", L"-"},      {L"a.b", L"c", L""},  // a section is a node without a text
      {L".", L"x", L"3"},       {L"", L"y", L"4"},           {deep, L"z", L"5"},
      {L"a.b", L"key", L"-"},   {L"new.path", L"key", L"-"}, {L"new", L"path", L""},  // made on the way of the read before
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, tree.Text(c.section, c.key, L"-")) << "row " << (&c - cases);
}

}  // namespace
}  // namespace crv::instup
