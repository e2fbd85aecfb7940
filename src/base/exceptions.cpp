#include "base/exceptions.h"

#include "base/format_message.h"

namespace crv::exceptions {
namespace detail {

void base::BuildMessage(const char* format, std::va_list arguments) {
  message_ = std::make_shared<const std::string>(FormatNarrow(format, arguments));
}

void base::BuildMessage(const wchar_t* format, std::va_list arguments) {
  message_ = std::make_shared<const std::string>(ToUtf8(FormatWide(format, arguments)));
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
