// Calls no Windows function: the native build under the sanitizers runs it as well.
#include "instup/path_text.h"

#include <gtest/gtest.h>

namespace crv::instup {
namespace {

TEST(PathText, JoinsByItsTable) {
  const struct {
    const wchar_t *folder, *component, *joined, *appended;
  } rows[] = {
      {L"C:\\Corvid", L"setup", L"C:\\Corvid\\setup", L"C:\\Corvid\\setup"},
      {L"C:/Corvid/", L"setup", L"C:/Corvid/setup", L"C:/Corvid/\\setup"},
      {L"C:\\Corvid", L"/setup", L"C:\\Corvid/setup", L"C:\\Corvid\\/setup"},
      {L"C:\\Corvid\\", L"\\setup", L"C:\\Corvid\\\\setup", L"C:\\Corvid\\\\setup"},  // both are kept
      {L" \tC:\\x\t ", L" y ", L"C:\\x\\ y ", L" \tC:\\x\t \\ y "},                   // only the folder is trimmed
      {L"C:\\Corvid", L"", L"C:\\Corvid", L"C:\\Corvid\\"},
      {L"", L"setup", L"setup", L"setup"},
      {L" \"C:\\a b\" ", L"c", L"\"C:\\a b\\c\"", L" \"C:\\a b\" \\c"},
      {L"\"\"", L"x", L"\"x\"", L"\"\"\\x"},
      {L"\"", L"x", L"\"\\x", L"\"\\x"},  // one quote alone does not quote
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.joined, JoinPath(row.folder, row.component)) << "row " << &row - rows;
    EXPECT_EQ(row.appended, AppendPath(row.folder, row.component)) << "row " << &row - rows;
  }
}

TEST(PathText, OnlyWholePathsNameOnePlace) {
  for (const wchar_t* whole :
       {L"C:\\x", L"c:/", L"C:", L"\\\\server\\share", L"//server/share", L"\\\\?\\C:\\x", L" \t\"C:\\a b\" "}) {
    EXPECT_TRUE(IsWholePath(whole)) << whole;
  }
  for (const wchar_t* partial : {L"", L" \t", L"\"", L"x", L"x\\y", L"C:x", L"\\", L"\\x", L".\\x", L"\" C:\\x\"", L"1:\\x"}) {
    EXPECT_FALSE(IsWholePath(partial)) << partial;
  }
}

TEST(PathText, PathsLeadOutOfTheirFolderByDots) {
  for (const wchar_t* out : {L"..", L"../x", L"\\..\\x", L"a\\..\\..\\b", L"a/..//..", L"...", L"a\\.. \\b", L" "})
    EXPECT_TRUE(LeadsOut(out)) << out;
  for (const wchar_t* in : {L"", L".", L"New", L"a\\..\\b", L".\\a\\b\\../..", L"..a", L"a..", L"a\\\\b"})
    EXPECT_FALSE(LeadsOut(in)) << in;
}

TEST(PathText, NormalizesByItsTable) {
  const std::wstring volume = L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}";
  const std::wstring rows[][2] = {
      {L"", L""},
      {L"\\/\\/", L"\\"},
      {L"C:\\Corvid\\/", L"C:\\Corvid"},
      {L"c://", L"c:\\"},
      {L"C:\\stream:", L"C:\\stream:"},  // ends like a drive and is more than its root
      {volume + L"\\\\", volume + L"\\"},
      {volume + L"\\{x}", volume + L"\\{x}"},
  };
  for (const auto& [text, expected] : rows) EXPECT_EQ(expected, NormalizeFolderPath(text));
}

}  // namespace
}  // namespace crv::instup
