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

}  // namespace

int compare(const wchar_t* left, std::uint32_t left_length, const wchar_t* right, std::uint32_t right_length,
            std::uint32_t maximum, const std::locale& locale) {
  if (!left) throw exceptions::fatal(exceptions::kInvalidParameter, "nocase::compare left nullparam");
  if (!right) throw exceptions::fatal(exceptions::kInvalidParameter, "nocase::compare right nullparam");

  left_length = ResolveLength(left, left_length);
  right_length = ResolveLength(right, right_length);
  const std::uint32_t shorter = std::min(left_length, right_length);
  const std::uint32_t count = std::min(shorter, maximum);

  int result = 0;
  if (locale == std::locale::classic()) {
    result = CompareFolded(left, right, count, FoldAscii);
  } else {
    const auto& ctype = std::use_facet<std::ctype<wchar_t>>(locale);
    result = CompareFolded(left, right, count, [&ctype](wchar_t c) { return ctype.tolower(c); });
  }
  if (result != 0 || maximum <= shorter || left_length == right_length) return result;
  return left_length < right_length ? -1 : 1;
}

bool Less::operator()(const std::wstring& left, const std::wstring& right) const {
  return compare(left.data(), static_cast<std::uint32_t>(left.size()), right.data(), static_cast<std::uint32_t>(right.size()),
                 kNoMaximum, locale_) < 0;
}

}  // namespace crv::nocase
