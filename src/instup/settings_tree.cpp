#include "instup/settings_tree.h"

#include <string_view>

namespace crv::instup {

SettingsTree::Node& SettingsTree::Child(Node& parent, const std::wstring& name) {
  Node*& child = parent.children[name];
  if (!child) child = &nodes_.emplace_back();
  return *child;
}

SettingsTree::Node& SettingsTree::Section(const std::wstring& path) {
  Node* node = &nodes_.front();
  for (std::size_t start = 0;;) {
    const std::size_t dot = path.find(L'.', start);
    node = &Child(*node, path.substr(start, dot - start));
    if (dot == std::wstring::npos) return *node;
    start = dot + 1;
  }
}

SettingsTree SettingsTree::Parse(const std::wstring& text) {
  SettingsTree tree;
  Node* section = nullptr;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = text.find(L'\n', start);
    std::wstring_view line = std::wstring_view(text).substr(start, end - start);
    start = end == std::wstring::npos ? text.size() : end + 1;
    if (!line.empty() && line.back() == L'\r') line.remove_suffix(1);

    if (line.empty() || line.front() == L';' || line.front() == L'#') continue;
    if (line.size() >= 2 && line.front() == L'[' && line.back() == L']') {
      section = &tree.Section(std::wstring(line.substr(1, line.size() - 2)));
      continue;
    }
    const std::size_t equals = line.find(L'=');
    if (equals == std::wstring_view::npos || !section) continue;
    tree.Child(*section, std::wstring(line.substr(0, equals))).text = line.substr(equals + 1);
  }
  return tree;
}

std::wstring SettingsTree::Text(const std::wstring& section_path, const std::wstring& key, const std::wstring& default_text) {
  const Node& section = Section(section_path);
  const auto found = section.children.find(key);
  return found == section.children.end() ? default_text : found->second->text;
}

}  // namespace crv::instup
