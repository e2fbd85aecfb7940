#include "shared/lines.h"

#include <algorithm>

namespace crv::standins {
namespace {

bool MatchesFrom(const char* pattern, const char* text) {
  if (*pattern == '*') return MatchesFrom(pattern + 1, text) || (*text && MatchesFrom(pattern, text + 1));
  if (*pattern != *text) return false;
  return !*pattern || MatchesFrom(pattern + 1, text + 1);
}

}  // namespace

bool MatchesPattern(const std::string& pattern, const std::string& text) { return MatchesFrom(pattern.c_str(), text.c_str()); }

bool AllMatch(const Lines& announced, const Lines& came, const Match& matches) {
  return std::equal(announced.begin(), announced.end(), came.begin(), came.end(), matches);
}

Lines Compared(const Lines& announced, const Lines& came, const Match& matches) {
  const std::size_t n = announced.size();
  const std::size_t m = came.size();
  std::vector<std::vector<std::size_t>> common(n + 1, std::vector<std::size_t>(m + 1));  // of what is left behind [i] and [j]
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = m; j-- > 0;) {
      common[i][j] = matches(announced[i], came[j]) ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  Lines text;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < n || j < m) {
    if (i < n && j < m && matches(announced[i], came[j])) {
      text.push_back("  " + came[j]);
      ++i, ++j;
    } else if (j == m || (i < n && common[i + 1][j] >= common[i][j + 1])) {
      text.push_back("- " + announced[i++]);
    } else {
      text.push_back("+ " + came[j++]);
    }
  }
  return text;
}

}  // namespace crv::standins
