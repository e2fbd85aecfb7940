// Any text as the installer's settings file: what the tree answers has to be what a plain scan of the lines finds. Each input byte
// is one character.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/nocase.h"
#include "instup/settings_tree.h"

namespace {

constexpr wchar_t kMissing[] = L"(missing)";
constexpr wchar_t kKey[] = L"NewDirectoryName";

bool SameName(const std::wstring& left, const std::wstring& right) {
  return crv::nocase::compare(left.data(), static_cast<std::uint32_t>(left.size()), right.data(), static_cast<std::uint32_t>(right.size()),
                              crv::nocase::kNoMaximum, std::locale()) == 0;
}

// The value of NewDirectoryName in section Common, without a tree.
std::wstring Scan(const std::wstring& text) {
  std::wstring value = kMissing;
  bool in_common = false;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find(L'\n', start);
    if (end == std::wstring::npos) end = text.size();
    std::wstring line = text.substr(start, end - start);
    start = end + 1;
    if (line.ends_with(L'\r')) line.pop_back();
    if (line.starts_with(L';') || line.starts_with(L'#')) continue;
    if (line.size() >= 2 && line.starts_with(L'[') && line.ends_with(L']')) {
      const std::wstring section = line.substr(1, line.size() - 2);
      in_common = SameName(section, L"Common");
      // A section of that path makes the key's node, without a text.
      const std::wstring node = std::wstring(L"Common.") + kKey;
      const std::wstring head = section.substr(0, node.size());
      const bool makes_node = SameName(head, node) && (section.size() == node.size() || section[node.size()] == L'.');
      if (makes_node && value == kMissing) value.clear();
      continue;
    }
    const std::size_t equals = line.find(L'=');
    if (equals != std::wstring::npos && in_common && SameName(line.substr(0, equals), kKey)) value = line.substr(equals + 1);
  }
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text(data, data + size);
  crv::instup::SettingsTree tree = crv::instup::SettingsTree::Parse(text);
  if (tree.Text(L"Common", kKey, kMissing) != Scan(text)) std::abort();
  tree.Text(text, text, L"");
  return 0;
}
