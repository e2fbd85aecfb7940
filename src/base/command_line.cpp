#include "base/command_line.h"

#include <utility>

namespace crv {
namespace {

bool IsDelimiter(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// Calls `use` with each token in order, the empty ones included. The token is only lent.
template <typename Use>
void ForEachToken(const wchar_t* text, Use use) {
  std::wstring token;
  bool started = false;
  bool quoted = false;
  const auto append = [&](wchar_t c) {
    started = true;
    token.push_back(c);
  };
  for (const wchar_t* at = text; *at; ++at) {
    if (!quoted && IsDelimiter(*at)) {
      while (IsDelimiter(at[1])) ++at;
      if (started) use(token);
      started = true;
      token.clear();
    } else if (*at != L'"') {
      append(*at);
    } else if (at[1] == L'"') {
      append(L'"');
      ++at;
    } else {
      quoted = !quoted;
    }
  }
  if (started) use(token);
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
  switches_.clear();
  words_.clear();
  bool first = true;
  ForEachToken(text, [&](const std::wstring& token) {
    if (std::exchange(first, false)) {
      program_ = token;
    } else {
      AddArgument(token);
    }
  });
}

void CommandLine::AddArgument(const std::wstring& token) {
  if (token.empty()) return;
  if (token.front() != L'/') {
    words_.push_back(token);
    return;
  }
  const std::size_t colon = token.find(L':');
  if (colon == std::wstring::npos) {
    set(token.substr(1), {});
  } else {
    set(token.substr(1, colon - 1), token.substr(colon + 1));
  }
}

bool CommandLine::has(const wchar_t* name) const { return switches_.find(name) != switches_.end(); }

const std::wstring& CommandLine::value(const wchar_t* name) const {
  static const std::wstring none;
  const auto found = switches_.find(name);
  return found == switches_.end() ? none : found->second;
}

void CommandLine::set(std::wstring name, std::wstring value) { switches_.insert_or_assign(std::move(name), std::move(value)); }

std::wstring CommandLine::arguments() const {
  std::wstring result;
  for (const auto& [name, value] : switches_) AppendSwitch(result, name, value);
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
