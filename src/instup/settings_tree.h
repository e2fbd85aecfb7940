// The content of an INI file as a tree of named nodes. Names are compared without regard to case; a section whose name holds dots
// is a chain of nodes, however long. Calls no Windows function. A tree is used by one thread at a time.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "base/nocase.h"

namespace crv::instup {

class SettingsTree {
 public:
  SettingsTree() : nodes_(1) {}
  SettingsTree(SettingsTree&&) = default;  // one that was moved from may only be assigned to or destroyed
  SettingsTree& operator=(SettingsTree&&) = default;

  // The parse of the text; parsing never fails. Lines end at line feeds, one carriage return before it is dropped. Lines that
  // begin with ";" or "#", empty lines and lines without "=" are passed over, and so are keys before the first section. Section
  // names, keys and values are taken as they stand, blanks included; a later value replaces an earlier one.
  static SettingsTree Parse(const std::wstring& text);

  // The value of the section's key, unchanged even when it is empty; the default when the key is missing. Section nodes on the
  // way are created when missing.
  std::wstring Text(const std::wstring& section_path, const std::wstring& key, const std::wstring& default_text);

 private:
  struct Node {
    std::wstring text;
    std::map<std::wstring, Node*, nocase::Less> children;
  };

  // Both are found or created: the child of that name, the node behind the dotted path.
  Node& Child(Node& parent, const std::wstring& name);
  Node& Section(const std::wstring& path);

  // All nodes, the root first, owned side by side: nodes that owned their children would end in a recursion as deep as the file
  // likes. A deque keeps their addresses.
  std::deque<Node> nodes_;
};

}  // namespace crv::instup
