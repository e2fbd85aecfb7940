// The interface of the suite's shared log library, log.dll, as far as the module uses it. The library is imported statically
// (log.def names the import) and implements everything here; its objects may be used from any thread at once. The order of the
// virtual operations is part of the binary interface.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <exception>
#include <memory>

namespace crv::log {

enum class LogLevel : std::uint32_t { info = 1, debug = 2, warning = 3, error = 4, critical = 5 };

namespace detail {

// Formatting is the library's: formats follow the C runtime ("%s" of a wide format takes a wide string). Tags are NUL-terminated
// narrow texts of at most 11 characters. Strings are only read during the call.
class ILogger {
 public:
  virtual void LogWideVariadic(LogLevel level, const char* tag, const wchar_t* format, ...) = 0;
  virtual void LogException(const char* tag, const std::exception& exception, const char* context, std::va_list arguments) = 0;
  virtual void LogExceptionAtLevel(LogLevel level, const char* tag, const std::exception& exception, const char* context,
                                   std::va_list arguments) = 0;
  virtual void LogWide(LogLevel level, const char* tag, const wchar_t* format, std::va_list arguments) = 0;
  virtual void LogNarrow(LogLevel level, const char* tag, const char* format, std::va_list arguments) = 0;
  virtual void OpenLogFile(const wchar_t* path, std::uint64_t roll_size, bool append) = 0;

 protected:
  ~ILogger() = default;  // objects end through the shared pointer that the library made
};

class ILogModule {
 public:
  virtual std::shared_ptr<ILogger> Logger() = 0;  // may be empty

 protected:
  ~ILogModule() = default;
};

// The process-wide module object of the library.
std::shared_ptr<ILogModule> AcquireLogModule();

}  // namespace detail
}  // namespace crv::log
