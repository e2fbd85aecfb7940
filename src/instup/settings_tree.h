// The content of an INI file as a tree of named nodes. Names are compared without regard to case; a section whose name holds dots
// is a chain of nodes, however long. Calls no Windows function. A tree is used by one thread at a time.
//
// A run asks for one or two values, so the text is kept as it is and read through at each question: no index costs time or memory.
#pragma once

#include <locale>
#include <string>
#include <vector>

namespace crv::instup {

class SettingsTree {
 public:
  // The parse of the text; parsing never fails. Lines end at line feeds, one carriage return before it is dropped. Lines that
  // begin with ";" or "#", empty lines and lines without "=" are passed over, and so are keys before the first section. Section
  // names, keys and values are taken as they stand, blanks included; a later value replaces an earlier one.
  static SettingsTree Parse(std::wstring text);

  // The value of the section's key, unchanged even when it is empty; the default when the key is missing. Section nodes on the
  // way are created when missing.
  std::wstring Text(const std::wstring& section_path, const std::wstring& key, const std::wstring& default_text);

 private:
  std::wstring text_;
  std::vector<std::wstring> created_;  // the paths of sections that were asked for
  std::locale locale_;                 // the global one of the construction
};

}  // namespace crv::instup
