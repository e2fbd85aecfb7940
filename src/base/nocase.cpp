#include "base/nocase.h"

#include <algorithm>

#include "base/exceptions.h"

namespace crv::nocase {
namespace {

std::uint32_t ResolveLength(const wchar_t* text, std::uint32_t length) {
  return length == kUntilNul ? static_cast<std::uint32_t>(std::char_traits<wchar_t>::length(text)) : length;
}

wchar_t FoldAscii(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

// -1, 0 or 1 by the first pair that differs after folding.
template <typename Fold>
int CompareFolded(const wchar_t* left, const wchar_t* right, std::uint32_t count, Fold fold) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const wchar_t l = fold(left[i]);
    const wchar_t r = fold(right[i]);
    if (l != r) return l < r ? -1 : 1;
  }
  return 0;
}

// The locale's own folding; null for the classic locale, which folds A to Z alone.
const std::ctype<wchar_t>* FoldingOf(const std::locale& locale) {
  return locale == std::locale::classic() ? nullptr : &std::use_facet<std::ctype<wchar_t>>(locale);
}

int CompareFolded(const wchar_t* left, const wchar_t* right, std::uint32_t count, const std::ctype<wchar_t>* folding) {
  if (!folding) return CompareFolded(left, right, count, FoldAscii);
  return CompareFolded(left, right, count, [folding](wchar_t c) { return folding->tolower(c); });
}

int CompareLengths(std::size_t left, std::size_t right) { return left < right ? -1 : left > right; }

}  // namespace

int compare(const wchar_t* left, std::uint32_t left_length, const wchar_t* right, std::uint32_t right_length,
            std::uint32_t maximum, const std::locale& locale) {
  if (!left) throw exceptions::fatal(exceptions::kInvalidParameter, "nocase::compare left nullparam");
  if (!right) throw exceptions::fatal(exceptions::kInvalidParameter, "nocase::compare right nullparam");

  left_length = ResolveLength(left, left_length);
  right_length = ResolveLength(right, right_length);
  const std::uint32_t shorter = std::min(left_length, right_length);
  const int result = CompareFolded(left, right, std::min(shorter, maximum), FoldingOf(locale));
  return result != 0 || maximum <= shorter ? result : CompareLengths(left_length, right_length);
}

Less::Less(const std::locale& locale) : locale_(locale), folding_(FoldingOf(locale_)) {}

bool Less::operator()(const std::wstring& left, const std::wstring& right) const {
  const int result =
      CompareFolded(left.data(), right.data(), static_cast<std::uint32_t>(std::min(left.size(), right.size())), folding_);
  return result != 0 ? result < 0 : left.size() < right.size();
}

}  // namespace crv::nocase
