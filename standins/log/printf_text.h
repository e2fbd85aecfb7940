// Formats the texts of records. Formats follow the C runtime ("%s" takes a narrow string in a narrow format and a wide one in a
// wide format), but a narrow text is UTF-8, and no text is ever lost because a character has no place in some code page. Any
// thread.
#pragma once

#include <cstdarg>
#include <string>

namespace crv::standins::log {

// A conversion that the C runtime does not know ends the formatting: the rest of the format is copied as it is, because the
// arguments from there on cannot be told apart. "%n" writes nothing.
std::wstring FormatText(const char* format, std::va_list arguments);
std::wstring FormatText(const wchar_t* format, std::va_list arguments);

}  // namespace crv::standins::log
