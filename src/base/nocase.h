// Comparison of wide strings without regard to case. Calls no Windows function. Any thread.
#pragma once

#include <cstdint>
#include <locale>
#include <string>

namespace crv::nocase {

inline constexpr std::uint32_t kUntilNul = 0xFFFFFFFF;   // as a length: up to the terminating NUL
inline constexpr std::uint32_t kNoMaximum = 0xFFFFFFFF;  // as a maximum: no limit

// Compares at most `maximum` characters of the two strings (lengths in characters) after folding each to lower case: under the
// classic locale only A to Z are folded, under any other every character with the locale's lower-casing. Returns a negative
// number, 0 or a positive number. When the compared characters are equal, the shorter string is the smaller, unless the maximum
// ended the comparison first. A null string throws `crv::exceptions::fatal` with code 87.
int compare(const wchar_t* left, std::uint32_t left_length, const wchar_t* right, std::uint32_t right_length,
            std::uint32_t maximum, const std::locale& locale);

// Orders names without regard to case, for ordered containers; under the global locale unless told otherwise.
class Less {
 public:
  explicit Less(const std::locale& locale = std::locale());

  bool operator()(const std::wstring& left, const std::wstring& right) const;

 private:
  std::locale locale_;
  const std::ctype<wchar_t>* folding_;  // the locale's; null for the classic one
};

}  // namespace crv::nocase
