// Formats message texts with the C runtime's printf conventions: "%s" takes a narrow string in a narrow format and a wide one in
// a wide format, "%ls" always takes a wide one. All functions may be called from any thread.
#pragma once

#include <cstdarg>
#include <string>

namespace crv {

// The formatted text; empty when the C runtime reports a formatting error.
std::string FormatNarrow(const char* format, std::va_list arguments);
std::wstring FormatWide(const wchar_t* format, std::va_list arguments);

// The text as UTF-8; empty when the system cannot convert it. An unpaired surrogate becomes U+FFFD.
std::string ToUtf8(const std::wstring& text);

// The UTF-8 text as UTF-16; empty when the system cannot convert it. Invalid bytes become U+FFFD.
std::wstring FromUtf8(const std::string& text);

}  // namespace crv
