#include "instup/settings_tree.h"

#include <optional>
#include <string_view>
#include <utility>

#include "base/nocase.h"

namespace crv::instup {
namespace {

using View = std::wstring_view;

// Takes the text up to the separator, and the separator, off the front; nothing is left behind the last one.
View TakeUpTo(std::optional<View>& rest, wchar_t separator) {
  const std::size_t end = rest->find(separator);
  const View front = rest->substr(0, end);
  rest = end == View::npos ? std::nullopt : std::optional(rest->substr(end + 1));
  return front;
}

class Reader {
 public:
  Reader(const std::locale& locale, View section, View key) : locale_(locale), section_(section), key_(key) {}

  void ReadLines(View text) {
    bool in_section = false;
    for (std::optional<View> rest = text; rest;) {
      View line = TakeUpTo(rest, L'\n');
      if (!line.empty() && line.back() == L'\r') line.remove_suffix(1);
      if (line.empty() || line.front() == L';' || line.front() == L'#') continue;
      if (line.size() >= 2 && line.front() == L'[' && line.back() == L']') {
        in_section = EnterSection(line.substr(1, line.size() - 2));
        continue;
      }
      const std::size_t equals = line.find(L'=');
      if (in_section && equals != View::npos && IsSame(line.substr(0, equals), key_)) value_ = line.substr(equals + 1);
    }
  }

  // Whether the path is the section's own. One that leads through the key makes the key a node without a text.
  bool EnterSection(View path) {
    std::optional<View> rest = path;
    for (std::optional<View> wanted = section_; wanted;) {
      if (!rest || !IsSame(TakeUpTo(rest, L'.'), TakeUpTo(wanted, L'.'))) return false;
    }
    if (!rest) return true;
    if (!value_ && IsSame(TakeUpTo(rest, L'.'), key_)) value_ = View();
    return false;
  }

  const std::optional<View>& value() const { return value_; }

 private:
  bool IsSame(View left, View right) const {
    return left.size() == right.size() &&
           nocase::compare(left.data(), static_cast<std::uint32_t>(left.size()), right.data(),
                           static_cast<std::uint32_t>(right.size()), nocase::kNoMaximum, locale_) == 0;
  }

  const std::locale& locale_;
  View section_;
  View key_;
  std::optional<View> value_;
};

}  // namespace

SettingsTree SettingsTree::Parse(std::wstring text) {
  SettingsTree tree;
  tree.text_ = std::move(text);
  return tree;
}

std::wstring SettingsTree::Text(const std::wstring& section_path, const std::wstring& key, const std::wstring& default_text) {
  Reader reader(locale_, section_path, key);
  reader.ReadLines(text_);
  for (const std::wstring& path : created_) reader.EnterSection(path);
  created_.push_back(section_path);
  return reader.value() ? std::wstring(*reader.value()) : default_text;
}

}  // namespace crv::instup
