// Calls no Windows function: the native build under the sanitizers runs it as well.
#include "instup/path_text.h"

#include <gtest/gtest.h>

namespace crv::instup {
namespace {

struct TwoTexts {
  const wchar_t* folder;
  const wchar_t* component;
  const wchar_t* expected;
};

TEST(PathText, JoinPathFollowsItsTable) {
  const TwoTexts rows[] = {
      {L"C:\\Corvid", L"setup", L"C:\\Corvid\\setup"},
      {L"C:\\Corvid\\", L"setup", L"C:\\Corvid\\setup"},
      {L"C:/Corvid/", L"setup", L"C:/Corvid/setup"},
      {L"C:\\Corvid", L"\\setup", L"C:\\Corvid\\setup"},
      {L"C:\\Corvid", L"/setup", L"C:\\Corvid/setup"},
      {L"C:\\Corvid\\", L"\\setup", L"C:\\Corvid\\\\setup"},  // separators that both bring are both kept
      {L" \tC:\\Corvid\t ", L" setup ", L"C:\\Corvid\\ setup "},  // only the folder is trimmed
      {L"C:\\Corvid", L"", L"C:\\Corvid"},
      {L"", L"setup", L"setup"},
      {L" \t", L"setup", L"setup"},
      {L" \"C:\\Program Files\" ", L"setup", L"\"C:\\Program Files\\setup\""},
      {L"\" C:\\x \"", L"y", L"\" C:\\x \\y\""},  // blanks inside the quotes stay
      {L"\"\"", L"setup", L"\"setup\""},
      {L"\"\"", L"", L"\"\""},
      {L"\"", L"x", L"\"\\x"},  // one quote alone does not quote
      {L"\"C:\\x", L"y", L"\"C:\\x\\y"},
      {L"C:\\x\"", L"y", L"C:\\x\"\\y"},
  };
  for (const TwoTexts& row : rows) EXPECT_EQ(row.expected, JoinPath(row.folder, row.component)) << "row " << &row - rows;
}

TEST(PathText, AppendPathFollowsItsTable) {
  const TwoTexts rows[] = {
      {L"C:\\Corvid", L"log", L"C:\\Corvid\\log"},
      {L"C:\\Corvid\\", L"log", L"C:\\Corvid\\log"},
      {L"C:\\Corvid", L"\\log", L"C:\\Corvid\\log"},
      {L"C:\\Corvid\\", L"\\log", L"C:\\Corvid\\\\log"},
      {L"C:/Corvid/", L"log", L"C:/Corvid/\\log"},
      {L"C:\\Corvid", L"/log", L"C:\\Corvid\\/log"},
      {L" C:\\Corvid ", L"log", L" C:\\Corvid \\log"},
      {L"C:\\Corvid", L"", L"C:\\Corvid\\"},
      {L"", L"log", L"log"},
      {L"", L"", L""},
  };
  for (const TwoTexts& row : rows) EXPECT_EQ(row.expected, AppendPath(row.folder, row.component)) << "row " << &row - rows;
}

TEST(PathText, NormalizeFolderPathFollowsItsTable) {
  struct {
    const wchar_t* text;
    const wchar_t* expected;
  } const rows[] = {
      {L"", L""},
      {L"\\\\", L"\\"},
      {L"/", L"\\"},
      {L"\\/\\/", L"\\"},
      {L"C:\\Corvid", L"C:\\Corvid"},
      {L"C:\\Corvid\\\\", L"C:\\Corvid"},
      {L"C:\\", L"C:\\"},
      {L"C:", L"C:\\"},
      {L"c://", L"c:\\"},
      {L"\\\\?\\C:\\", L"\\\\?\\C:\\"},
      {L"C:\\stream:", L"C:\\stream:"},  // ends like a drive and is more than its root
      {L"C:\\{name}\\", L"C:\\{name}"},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}", L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\"},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\\\", L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\"},
      {L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\{x}", L"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\{x}"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.expected, NormalizeFolderPath(row.text)) << "row " << &row - rows;
}

}  // namespace
}  // namespace crv::instup
