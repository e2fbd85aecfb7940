// Any text as the installer's settings file: it is parsed and asked for what it names. Each input byte is one character.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "instup/settings_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text(data, data + size);
  crv::instup::SettingsTree tree = crv::instup::SettingsTree::Parse(text);
  tree.Text(text, text, L"");
  const std::wstring value = tree.Text(L"Common", L"NewDirectoryName", L"(missing)");
  if (value != L"(missing)" && text.find(value) == std::wstring::npos) std::abort();  // made up
  return 0;
}
