#include "base/command_line.h"

#include <algorithm>
#include <utility>

namespace crv {
namespace {

bool IsDelimiter(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// Appends each token in order, the empty ones included, to `buffer` and calls `use` with the place where it begins. The token is the
// user's to keep or to cut off.
template <typename Use>
void ForEachToken(const wchar_t* text, std::wstring& buffer, Use use) {
  std::size_t begin = buffer.size();
  bool started = false;
  bool quoted = false;
  for (const wchar_t* at = text; *at; ++at) {
    if (!quoted && IsDelimiter(*at)) {
      while (IsDelimiter(at[1])) ++at;
      if (started) use(begin);
      started = true;
      begin = buffer.size();
    } else if (*at == L'"' && at[1] != L'"') {
      quoted = !quoted;
    } else {
      if (*at == L'"') ++at;
      started = true;
      buffer.push_back(*at);
    }
  }
  if (started) use(begin);
}

void AppendWithDoubledQuotes(std::wstring& result, const std::wstring& text) {
  for (const wchar_t c : text) {
    if (c == L'"') result.push_back(c);
    result.push_back(c);
  }
}

void AppendSeparator(std::wstring& result) {
  if (!result.empty()) result.push_back(L' ');
}

void AppendSwitch(std::wstring& result, const std::wstring& name, const std::wstring& value) {
  constexpr const wchar_t* kNeedsQuotes = L" \"";
  const bool quoted =
      name.find_first_of(kNeedsQuotes) != std::wstring::npos || value.find_first_of(kNeedsQuotes) != std::wstring::npos;
  AppendSeparator(result);
  if (quoted) result.push_back(L'"');
  result.push_back(L'/');
  AppendWithDoubledQuotes(result, name);
  if (!value.empty()) {
    result.push_back(L':');
    AppendWithDoubledQuotes(result, value);
  }
  if (quoted) result.push_back(L'"');
}

void AppendWord(std::wstring& result, const std::wstring& word) {
  AppendSeparator(result);
  result.push_back(L'"');
  AppendWithDoubledQuotes(result, word);
  result.push_back(L'"');
}

}  // namespace

void CommandLine::parse(const wchar_t* text) {
  program_.clear();
  text_.clear();
  switches_.clear();
  words_.clear();
  bool first = true;
  ForEachToken(text, text_, [&](std::size_t begin) {
    if (std::exchange(first, false)) {
      program_ = text_;
      text_.clear();
    } else {
      AddArgument(begin);
    }
  });
}

// The token at the end of the text: a switch stays there without its slash and colon, of others nothing stays.
void CommandLine::AddArgument(std::size_t begin) {
  if (begin == text_.size()) return;
  if (text_[begin] != L'/') {
    words_.push_back(text_.substr(begin));
    text_.resize(begin);
    return;
  }
  const std::size_t colon = text_.find(L':', begin);
  if (colon == std::wstring::npos) {
    switches_.push_back({begin + 1, text_.size(), text_.size()});
  } else {
    switches_.push_back({begin + 1, colon, text_.size() - 1});
    text_.erase(colon, 1);
  }
}

const CommandLine::Switch* CommandLine::Find(std::wstring_view name) const {
  const auto length = static_cast<std::uint32_t>(name.size());
  const auto found = std::find_if(switches_.rbegin(), switches_.rend(), [&](const Switch& entry) {
    const std::wstring_view candidate = NameOf(entry);
    return candidate.size() == name.size() &&
           nocase::compare(candidate.data(), length, name.data(), length, nocase::kNoMaximum, locale_) == 0;
  });
  return found == switches_.rend() ? nullptr : &*found;
}

bool CommandLine::has(const wchar_t* name) const { return Find(name) != nullptr; }

std::wstring CommandLine::value(const wchar_t* name) const {
  const Switch* const found = Find(name);
  return std::wstring(found ? ValueOf(*found) : std::wstring_view());
}

void CommandLine::set(const std::wstring& name, const std::wstring& value) {
  const std::size_t begin = text_.size();
  text_ += name + value;
  switches_.push_back({begin, begin + name.size(), text_.size()});
}

CommandLine::Switches CommandLine::switches() const {
  Switches result{nocase::Less(locale_)};
  for (const Switch& entry : switches_) result.insert_or_assign(std::wstring(NameOf(entry)), std::wstring(ValueOf(entry)));
  return result;
}

std::wstring CommandLine::arguments() const {
  std::wstring result;
  for (const auto& [name, value] : switches()) AppendSwitch(result, name, value);
  for (const std::wstring& word : words_) AppendWord(result, word);
  return result;
}

std::wstring CommandLine::text() const {
  std::wstring result;
  if (!program_.empty()) result = L"\"" + program_ + L"\"";
  const std::wstring rest = arguments();
  if (!rest.empty()) {
    AppendSeparator(result);
    result += rest;
  }
  return result;
}

}  // namespace crv
