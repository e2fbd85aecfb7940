// WMI's relative object paths: `Class`, which means the class itself, and `Class.key="value"`, in which `\` stands before a
// quotation mark or a `\` of the value.
#pragma once

#include <optional>
#include <string>

namespace crv::standins {

struct ObjectPath {
  std::wstring class_name;
  std::optional<std::wstring> key_name;  // empty: the path names the class
  std::wstring key_value;
};

std::optional<ObjectPath> ParseObjectPath(const std::wstring& text);  // empty: it is none

}  // namespace crv::standins
