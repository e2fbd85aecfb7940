// base/format_message.h for the native build, as far as the tests there need it: narrow texts. "%ls" takes the machine's own wide
// string, and a wide format comes out as it is.
#include "base/format_message.h"

#include <cstdio>

namespace crv {

std::string FormatNarrow(const char* format, std::va_list arguments) {
  char text[1024];
  std::vsnprintf(text, sizeof(text), format, arguments);
  return text;
}

std::wstring FormatWide(const wchar_t* format, std::va_list) { return format; }

std::string ToUtf8(const std::wstring& text) { return {text.begin(), text.end()}; }

}  // namespace crv
