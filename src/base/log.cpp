#include "base/log.h"

#include <boost/thread/mutex.hpp>
#include <exception>
#include <utility>

namespace crv::log {
namespace {

constexpr std::uint64_t kRollSize = 0x400000;  // bytes
constexpr bool kAppend = true;

// Acquires the library's module on first use. Lives for one call of the front.
class ModuleHolder {
 public:
  detail::ILogModule* Get() {
    if (!module_) {
      boost::mutex::scoped_lock lock(mutex_);
      if (!module_) module_ = detail::AcquireLogModule();
    }
    return module_.get();
  }

 private:
  std::shared_ptr<detail::ILogModule> module_;
  boost::mutex mutex_;
};

// Runs `use` with the library's logger; does nothing when the library hands out none. Released in this order: logger, module.
template <typename Use>
void WithLogger(Use use) {
  ModuleHolder holder;
  detail::ILogModule* const module = holder.Get();
  if (!module) return;
  if (const std::shared_ptr<detail::ILogger> logger = module->Logger()) use(*logger);
}

std::shared_ptr<detail::ILogger> AcquireLogger() {
  std::shared_ptr<detail::ILogger> result;
  ModuleHolder holder;
  if (detail::ILogModule* const module = holder.Get()) result = module->Logger();
  return result;
}

// Ends a started argument list also when the library throws.
class ArgumentListEnd {
 public:
  explicit ArgumentListEnd(std::va_list& list) : list_(list) {}
  ~ArgumentListEnd() { va_end(list_); }

 private:
  std::va_list& list_;
};

}  // namespace

void LogNarrow(LogLevel level, const Tag& tag, const char* format, std::va_list arguments) {
  WithLogger([&](detail::ILogger& logger) { logger.LogNarrow(level, tag.text(), format, arguments); });
}

void LogWide(LogLevel level, const Tag& tag, const wchar_t* format, std::va_list arguments) {
  WithLogger([&](detail::ILogger& logger) { logger.LogWide(level, tag.text(), format, arguments); });
}

// One pair of entry points for each level; C variadic functions cannot share a body.
#define CRV_DEFINE_LEVEL(Name, level)                     \
  void Name(const Tag& tag, const char* format, ...) {    \
    std::va_list arguments;                               \
    va_start(arguments, format);                          \
    const ArgumentListEnd end(arguments);                 \
    LogNarrow(LogLevel::level, tag, format, arguments);   \
  }                                                       \
  void Name(const Tag& tag, const wchar_t* format, ...) { \
    std::va_list arguments;                               \
    va_start(arguments, format);                          \
    const ArgumentListEnd end(arguments);                 \
    LogWide(LogLevel::level, tag, format, arguments);     \
  }
CRV_DEFINE_LEVEL(Info, info)
CRV_DEFINE_LEVEL(Debug, debug)
CRV_DEFINE_LEVEL(Warning, warning)
CRV_DEFINE_LEVEL(Error, error)
CRV_DEFINE_LEVEL(Critical, critical)
#undef CRV_DEFINE_LEVEL

void LogException(const Tag& tag, const std::exception& exception, const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  const ArgumentListEnd end(arguments);
  WithLogger([&](detail::ILogger& logger) { logger.LogException(tag.text(), exception, context, arguments); });
}

void LogExceptionAtLevel(LogLevel level, const Tag& tag, const std::exception& exception, const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  const ArgumentListEnd end(arguments);
  WithLogger([&](detail::ILogger& logger) { logger.LogExceptionAtLevel(level, tag.text(), exception, context, arguments); });
}

void OpenLogFile(const std::wstring& path) {
  WithLogger([&](detail::ILogger& logger) { logger.OpenLogFile(path.c_str(), kRollSize, kAppend); });
}

LogStream::LogStream(LogLevel level, const Tag& tag)
    : logger_(AcquireLogger()), level_(level), tag_(tag), exceptions_at_start_(std::uncaught_exceptions()) {}

LogStream::~LogStream() noexcept(false) {
  if (!logger_) return;
  // Asked before the call: the library's throw is counted in its own runtime but ended in this one, whose count is wrong from then
  // on until the catch clause ends.
  const bool may_throw = std::uncaught_exceptions() == exceptions_at_start_;
  try {
    logger_->LogWideVariadic(level_, tag_.text(), L"%s", text_.str().c_str());
  } catch (...) {
    if (may_throw) throw;
  }
}

}  // namespace crv::log
