#include "base/exceptions.h"

#include "base/format_message.h"

namespace crv::exceptions {
namespace detail {

base::base(std::uint32_t code) : message_(""), code_(code) {}

void base::BuildMessage(const char* format, std::va_list arguments) {
  message_ = std::runtime_error(FormatNarrow(format, arguments));
}

void base::BuildMessage(const wchar_t* format, std::va_list arguments) {
  message_ = std::runtime_error(ToUtf8(FormatWide(format, arguments)));
}

}  // namespace detail

error::error() : base(kInvalidParameter) {}

error::error(const char* format, ...) : base(kNoCode) {
  std::va_list arguments;
  va_start(arguments, format);
  BuildMessage(format, arguments);
  va_end(arguments);
}

error::error(std::uint32_t code, const char* format, ...) : base(code) {
  std::va_list arguments;
  va_start(arguments, format);
  BuildMessage(format, arguments);
  va_end(arguments);
}

error::error(std::uint32_t code, const wchar_t* format, ...) : base(code) {
  std::va_list arguments;
  va_start(arguments, format);
  BuildMessage(format, arguments);
  va_end(arguments);
}

fatal::fatal(const char* format, ...) : base(kNoCode) {
  std::va_list arguments;
  va_start(arguments, format);
  BuildMessage(format, arguments);
  va_end(arguments);
}

fatal::fatal(std::uint32_t code, const char* format, ...) : base(code) {
  std::va_list arguments;
  va_start(arguments, format);
  BuildMessage(format, arguments);
  va_end(arguments);
}

}  // namespace crv::exceptions
