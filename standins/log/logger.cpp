#include "log/logger.h"

#include <windows.h>

#include <utility>

#include "base/format_message.h"
#include "log/control.h"
#include "log/printf_text.h"
#include "log/record.h"
#include "log/scripted_failure.h"

namespace crv::standins::log {
namespace {

constexpr std::size_t kMostEarlyRecords = 1000;

void WriteToErrorOutput(const std::string& line) {
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_ERROR_HANDLE), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

}  // namespace

// Runs while the process ends: the other threads are gone and may have taken the mutex with them.
Logger::~Logger() {
  for (const std::string& line : early_) WriteToErrorOutput(line);
}

void Logger::LogWideVariadic(crv::log::LogLevel level, const char* tag, const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::wstring text = FormatText(format, arguments);
  va_end(arguments);
  ThrowIfScripted(kLogMessage);
  Write(Line(level, tag, text));
}

void Logger::LogException(const char* tag, const std::exception& exception, const char* context, std::va_list arguments) {
  LogExceptionAtLevel(crv::log::LogLevel::error, tag, exception, context, arguments);
}

void Logger::LogExceptionAtLevel(crv::log::LogLevel level, const char* tag, const std::exception& exception, const char* context,
                                 std::va_list arguments) {
  ThrowIfScripted(kLogException);
  Write(Line(level, tag, ExceptionText(FormatText(context, arguments), exception)));
}

void Logger::LogWide(crv::log::LogLevel level, const char* tag, const wchar_t* format, std::va_list arguments) {
  ThrowIfScripted(kLogMessage);
  Write(Line(level, tag, FormatText(format, arguments)));
}

void Logger::LogNarrow(crv::log::LogLevel level, const char* tag, const char* format, std::va_list arguments) {
  ThrowIfScripted(kLogMessage);
  Write(Line(level, tag, FormatText(format, arguments)));
}

void Logger::OpenLogFile(const wchar_t* path, std::uint64_t roll_size, bool append) {
  ThrowIfScripted(kLogOpen);
  const std::lock_guard lock(mutex_);
  file_ = LogFile(path, roll_size);
  if (const DWORD error = file_.Open(append)) ReportOnce(error);
  const std::deque<std::string> early = std::exchange(early_, {});
  for (const std::string& line : early) Deliver(line);
}

void Logger::Write(std::string line) {
  const std::lock_guard lock(mutex_);
  if (file_.has_path()) {
    Deliver(line);
    return;
  }
  if (early_.size() == kMostEarlyRecords) early_.pop_front();
  early_.push_back(std::move(line));
}

void Logger::Deliver(const std::string& line) {
  const DWORD error = file_.Append(line);
  if (!error) return;
  ReportOnce(error);
  WriteToErrorOutput(line);
}

void Logger::ReportOnce(DWORD error) {
  if (std::exchange(reported_, true)) return;
  WriteToErrorOutput("log library: cannot write " + ToUtf8(file_.path()) + " (error " + std::to_string(error) + ")\r\n");
}

}  // namespace crv::standins::log
