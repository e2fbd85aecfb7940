#include "instup/path_text.h"

#include <algorithm>

#include "root/path_root.h"

namespace crv::instup {
namespace {

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

constexpr const wchar_t* kBlanks = L" \t";

std::wstring TrimBlanks(const std::wstring& text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::wstring::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsVolumeRoot(const std::wstring& text) {
  if (text.back() != L':' && text.back() != L'}') return false;
  root::PathRootInfo info;
  return root::GetPathRootInfo(text.c_str(), &info) == 0 && info.root_end == text.size();
}

}  // namespace

std::wstring JoinPath(const std::wstring& folder, const std::wstring& component) {
  std::wstring joined = TrimBlanks(folder);
  const bool quoted = joined.size() > 1 && joined.front() == L'"' && joined.back() == L'"';
  if (quoted) joined = joined.substr(1, joined.size() - 2);

  if (joined.empty()) {
    joined = component;
  } else if (!component.empty()) {
    if (!IsSeparator(joined.back()) && !IsSeparator(component.front())) joined += L'\\';
    joined += component;
  }
  return quoted ? L'"' + joined + L'"' : joined;
}

bool IsWholePath(const std::wstring& folder) noexcept {
  const wchar_t* text = folder.c_str() + std::min(folder.find_first_not_of(kBlanks), folder.size());
  if (*text == L'"') ++text;
  root::PathRootInfo info;
  return root::GetPathRootInfo(text, &info) == 0 && (info.flags & root::kPathAbsolute) != 0;
}

bool LeadsOut(std::wstring_view path) noexcept {
  int depth = 0;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(L"\\/"), path.size());
    const std::wstring_view name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name.empty() || name == L".") continue;
    const bool is_name = name.find_first_not_of(L". \t") != std::wstring_view::npos;
    if (!is_name && name != L"..") return true;
    depth += is_name ? 1 : -1;
    if (depth < 0) return true;
  }
  return false;
}

std::wstring AppendPath(const std::wstring& text, const std::wstring& component) {
  std::wstring joined = text;
  if (!joined.empty() && joined.back() != L'\\' && !component.starts_with(L'\\')) joined += L'\\';
  return joined += component;
}

std::wstring NormalizeFolderPath(const std::wstring& text) {
  std::wstring folder = text;
  while (!folder.empty() && IsSeparator(folder.back())) folder.pop_back();
  if (folder.empty()) return text.empty() ? L"" : L"\\";
  if (IsVolumeRoot(folder)) folder += L'\\';
  return folder;
}

}  // namespace crv::instup
