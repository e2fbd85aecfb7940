// The module's thin front to the suite's log library. Every call acquires the library's module and logger anew and keeps
// nothing; without a logger a record is dropped silently. The front formats nothing and throws nothing of its own, but a failure
// inside the library reaches the caller. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "base/log_library.h"
#include "platform/printf_check.h"

namespace crv::log {

// The tag under which a source file logs, at most 11 characters; a longer text is cut. Each file owns one.
class Tag {
 public:
  static constexpr std::size_t kSize = 12;  // bytes, the terminating NUL included

  explicit constexpr Tag(const char* text) {
    for (std::size_t i = 0; i + 1 < kSize && text[i]; ++i) text_[i] = text[i];
  }
  constexpr const char* text() const { return text_; }

 private:
  char text_[kSize] = {};
};

// One record at a level. Narrow and wide texts take different ways through the library; neither is converted here.
void Info(const Tag& tag, const char* format, ...) CRV_PRINTF(2, 3);
void Info(const Tag& tag, const wchar_t* format, ...);
void Debug(const Tag& tag, const char* format, ...) CRV_PRINTF(2, 3);
void Debug(const Tag& tag, const wchar_t* format, ...);
void Warning(const Tag& tag, const char* format, ...) CRV_PRINTF(2, 3);
void Warning(const Tag& tag, const wchar_t* format, ...);
void Error(const Tag& tag, const char* format, ...) CRV_PRINTF(2, 3);
void Error(const Tag& tag, const wchar_t* format, ...);
void Critical(const Tag& tag, const char* format, ...) CRV_PRINTF(2, 3);
void Critical(const Tag& tag, const wchar_t* format, ...);

// The same with the level and an argument list given.
void LogNarrow(LogLevel level, const Tag& tag, const char* format, std::va_list arguments);
void LogWide(LogLevel level, const Tag& tag, const wchar_t* format, std::va_list arguments);

// A caught exception, printed by the library with its code, its text and what is nested in it, behind a context text.
void LogException(const Tag& tag, const std::exception& exception, const char* context, ...) CRV_PRINTF(3, 4);
void LogExceptionAtLevel(LogLevel level, const Tag& tag, const std::exception& exception, const char* context, ...)
    CRV_PRINTF(4, 5);

// Opens the log file. Its folder is not made here, and what becomes of records logged before is the library's concern.
void OpenLogFile(const std::wstring& path);

// Collects text and writes it as one record when it ends. It keeps the logger from its construction on; without one it writes
// nothing. A failure of the library leaves the destructor, unless an exception is already on its way.
class LogStream {
 public:
  LogStream(LogLevel level, const Tag& tag);
  ~LogStream() noexcept(false);
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  template <typename Value>
  LogStream& operator<<(const Value& value) {
    text_ << value;
    return *this;
  }

 private:
  std::shared_ptr<detail::ILogger> logger_;
  LogLevel level_;
  Tag tag_;
  std::wostringstream text_;
  int exceptions_at_start_;
};

}  // namespace crv::log
