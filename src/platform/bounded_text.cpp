#include "platform/bounded_text.h"

#include <cstdarg>

namespace crv::platform {
namespace {

bool Put(wchar_t* destination, std::size_t size, std::size_t at, const wchar_t* text) {
  const std::size_t length = std::wcslen(text);
  if (at >= size || length >= size - at) {
    destination[0] = L'\0';
    return false;
  }
  std::wmemcpy(destination + at, text, length + 1);
  return true;
}

}  // namespace

bool wcscpy_s(wchar_t* destination, std::size_t size, const wchar_t* text) { return Put(destination, size, 0, text); }

bool wcscat_s(wchar_t* destination, std::size_t size, const wchar_t* text) {
  return Put(destination, size, std::wcslen(destination), text);
}

bool swprintf_s(wchar_t* destination, std::size_t size, const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int written = _vsnwprintf(destination, size, format, arguments);
  va_end(arguments);
  const bool fits = written >= 0 && static_cast<std::size_t>(written) < size;
  destination[fits ? written : 0] = L'\0';
  return fits;
}

}  // namespace crv::platform
