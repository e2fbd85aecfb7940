// base/format_message.h for the native build, as far as the tests there need it: the printf family of the machine's own C
// library, whose "%s" of a wide format takes a narrow string, unlike the Windows runtime's.
#include "base/format_message.h"

#include <codecvt>
#include <cstdio>
#include <cwchar>
#include <locale>

namespace crv {

std::string FormatNarrow(const char* format, std::va_list arguments) {
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 1) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

// The C library cannot measure a wide text, so the room grows until it fits, up to a size at which it has to be a formatting
// error.
std::wstring FormatWide(const wchar_t* format, std::va_list arguments) {
  constexpr std::size_t kMostChars = 1 << 20;
  for (std::size_t room = 256; room <= kMostChars; room *= 2) {
    std::wstring text(room, L'\0');
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vswprintf(text.data(), room, format, again);
    va_end(again);
    if (length < 0) continue;
    text.resize(static_cast<std::size_t>(length));
    return text;
  }
  return {};
}

// Here one wide character is one code point.
std::string ToUtf8(const std::wstring& text) {
  return std::wstring_convert<std::codecvt_utf8<wchar_t>>("", L"").to_bytes(text);
}

}  // namespace crv
