// The process-wide logger. Records before a file is open are kept, the latest 1,000, and written when it opens; when none opens
// they go to the standard error output as the process ends. A file that cannot be written is reported there once, and the
// records that it should have taken follow. Never creates a folder; throws only what its script asks for. Any thread, also one
// that crashed inside a call.
#pragma once

#include <deque>
#include <mutex>
#include <string>

#include "base/log_library.h"
#include "log/log_file.h"

namespace crv::standins::log {

class Logger final : public crv::log::detail::ILogger {
 public:
  Logger() = default;
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  void LogWideVariadic(crv::log::LogLevel level, const char* tag, const wchar_t* format, ...) override;
  void LogException(const char* tag, const std::exception& exception, const char* context, std::va_list arguments) override;
  void LogExceptionAtLevel(crv::log::LogLevel level, const char* tag, const std::exception& exception, const char* context,
                           std::va_list arguments) override;
  void LogWide(crv::log::LogLevel level, const char* tag, const wchar_t* format, std::va_list arguments) override;
  void LogNarrow(crv::log::LogLevel level, const char* tag, const char* format, std::va_list arguments) override;
  void OpenLogFile(const wchar_t* path, std::uint64_t roll_size, bool append) override;

 private:
  void Write(std::string line);
  void Deliver(const std::string& line);
  void ReportOnce(DWORD error);

  // Recursive: the filter of a crash inside a call may log on the same thread.
  std::recursive_mutex mutex_;
  LogFile file_;
  std::deque<std::string> early_;
  bool reported_ = false;
};

}  // namespace crv::standins::log
