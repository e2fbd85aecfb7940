// Lines of text (UTF-8) that were announced, beside those that came.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace crv::standins {

using Lines = std::vector<std::string>;

// Several lists as one.
template <typename... More>
Lines Joined(Lines lines, const More&... more) {
  (lines.insert(lines.end(), more.begin(), more.end()), ...);
  return lines;
}

bool MatchesPattern(const std::string& pattern, const std::string& text);  // "*" in the pattern stands for any text

using Match = std::function<bool(const std::string& announced, const std::string& line)>;

bool AllMatch(const Lines& announced, const Lines& came, const Match& matches = &MatchesPattern);

// Both lists in one, with the fewest differences: "- " before what did not come, "+ " before what was not announced, else "  ".
Lines Compared(const Lines& announced, const Lines& came, const Match& matches = &MatchesPattern);

}  // namespace crv::standins
