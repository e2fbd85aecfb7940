#include "base/format_message.h"

#include <windows.h>

#include <cstdio>

namespace crv {
namespace {

// Measures, then formats into a string of exactly the measured length. The C runtime's own functions are used because the
// compiler's replacements give "%s" of a wide format another meaning.
template <typename Text, typename Measure, typename Format>
Text MeasureAndFormat(std::va_list arguments, Measure measure, Format format) {
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = measure(measured);
  va_end(measured);
  Text text;
  if (length < 1) return text;
  text.resize(static_cast<std::size_t>(length));
  format(text.data(), text.size(), arguments);
  return text;
}

}  // namespace

std::string FormatNarrow(const char* format, std::va_list arguments) {
  return MeasureAndFormat<std::string>(
      arguments, [format](std::va_list list) { return _vscprintf(format, list); },
      [format](char* buffer, std::size_t count, std::va_list list) { _vsnprintf(buffer, count, format, list); });
}

std::wstring FormatWide(const wchar_t* format, std::va_list arguments) {
  return MeasureAndFormat<std::wstring>(
      arguments, [format](std::va_list list) { return _vscwprintf(format, list); },
      [format](wchar_t* buffer, std::size_t count, std::va_list list) { _vsnwprintf(buffer, count, format, list); });
}

std::string ToUtf8(const std::wstring& text) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  if (length < 1) return {};
  std::string result(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), length, nullptr, nullptr);
  return result;
}

std::wstring FromUtf8(const std::string& text) {
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  if (length < 1) return {};
  std::wstring result(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), length);
  return result;
}

}  // namespace crv
