// The log library as its users reach it, and what it wrote, taken apart.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "base/log_library.h"
#include "standins/child.h"

namespace crv::test {

inline constexpr std::uint64_t kNoLimit = 0;

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  for (std::size_t end; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2) {
    lines.push_back(text.substr(at, end - at));
  }
  if (at < text.size()) lines.push_back(text.substr(at) + "<no line end>");
  return lines;
}

// Everything before the text has a fixed length: date, time, process, thread, level, tag.
inline constexpr std::size_t kHead = 23 + 1 + 6 + 1 + 6 + 1 + 8 + 1 + 11 + 2;
inline std::string TextOf(const std::string& line) { return line.size() < kHead ? "<short> " + line : line.substr(kHead); }

inline std::vector<std::string> Texts(const std::string& text) {
  std::vector<std::string> texts;
  for (const std::string& line : Lines(text)) texts.push_back(TextOf(line));
  return texts;
}

inline void Narrow(log::detail::ILogger& logger, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logger.LogNarrow(log::LogLevel::info, "wsc", format, arguments);
  va_end(arguments);
}

inline void Wide(log::detail::ILogger& logger, const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logger.LogWide(log::LogLevel::info, "wsc", format, arguments);
  va_end(arguments);
}

inline void Exception(log::detail::ILogger& logger, const std::exception& exception, const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  logger.LogException("wsc", exception, context, arguments);
  va_end(arguments);
}

inline void ExceptionAtLevel(log::detail::ILogger& logger, log::LogLevel level, const std::exception& exception,
                             const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  logger.LogExceptionAtLevel(level, "crashguard", exception, context, arguments);
  va_end(arguments);
}

inline std::shared_ptr<log::detail::ILogger> Logger() { return log::detail::AcquireLogModule()->Logger(); }

class LogLibrary : public testing::Test {
 protected:
  // What one use of the logger leaves in a file of its own.
  std::string Logged(const std::function<void(log::detail::ILogger&)>& use) {
    const std::wstring path = folder_ / L"case.log";
    const auto logger = Logger();
    logger->OpenLogFile(path.c_str(), kNoLimit, false);
    use(*logger);
    return ReadFileText(path);
  }

  TemporaryFolder folder_;
};

}  // namespace crv::test
