#include "wmi/object_path.h"

namespace crv::standins {
namespace {

bool IsName(const std::wstring& text) {
  if (text.empty() || (text[0] >= L'0' && text[0] <= L'9')) return false;
  for (const wchar_t c : text) {
    if (!((c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'_')) return false;
  }
  return true;
}

// The value behind an opening quotation mark, to the closing one, which has to be the last character.
std::optional<std::wstring> ParseValue(const std::wstring& text, std::size_t at) {
  std::wstring value;
  for (; at < text.size() && text[at] != L'"'; ++at) {
    if (text[at] == L'\\' && ++at == text.size()) return std::nullopt;
    value.push_back(text[at]);
  }
  if (at + 1 != text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<ObjectPath> ParseObjectPath(const std::wstring& text) {
  ObjectPath path;
  const std::size_t dot = text.find(L'.');
  path.class_name = text.substr(0, dot);
  if (!IsName(path.class_name)) return std::nullopt;
  if (dot == std::wstring::npos) return path;
  const std::size_t equals = text.find(L"=\"", dot);
  if (equals == std::wstring::npos) return std::nullopt;
  path.key_name = text.substr(dot + 1, equals - dot - 1);
  const std::optional<std::wstring> value = ParseValue(text, equals + 2);
  if (!IsName(*path.key_name) || !value) return std::nullopt;
  path.key_value = *value;
  return path;
}

}  // namespace crv::standins
