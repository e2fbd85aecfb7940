// The record of the display name under which each product kind was last registered with Security Center: one REG_SZ value per
// kind, named after the kind's interface ("IWscAVStatus"), under the module's key. It outlives unregistering. Any thread.
#pragma once

#include <string>

namespace crv::wsc {

// The name of the kind's value: the text behind the last blank of the interface's type name ("struct IWscAVStatus").
[[nodiscard]] std::wstring registered_name_value(const std::string& interface_type_name);

// Whether the record is missing, unreadable or holds another text than the display name, letter case included.
[[nodiscard]] bool registered_name_differs(const std::wstring& value_name);

// Writes the display name. A failure is logged at error level and otherwise ignored: the registration itself stands.
void write_registered_name(const std::wstring& value_name);

}  // namespace crv::wsc
