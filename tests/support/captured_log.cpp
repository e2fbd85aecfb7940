#include "support/captured_log.h"

#include <mutex>
#include <stdexcept>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "base/log_library.h"

namespace crv::test {
namespace {

std::mutex mutex;
std::vector<std::string>& records = *new std::vector<std::string>;
CapturedLog::Behaviour behaviour = CapturedLog::Behaviour::normal;
int acquired = 0;

std::string Describe(const std::exception& exception) {
  std::string text = exception.what();
  if (const auto* const coded = dynamic_cast<const exceptions::detail::base*>(&exception)) {
    char code[16];
    _snprintf(code, sizeof(code), " [%08lx]", static_cast<unsigned long>(coded->code()));
    text += code;
  }
  try {
    std::rethrow_if_nested(exception);
  } catch (const std::exception& nested) {
    text += " <- " + Describe(nested);
  }
  return text;
}

class Logger : public log::detail::ILogger {
 public:
  virtual ~Logger() = default;
  void LogWideVariadic(log::LogLevel level, const char* tag, const wchar_t* format, ...) override {
    std::va_list arguments;
    va_start(arguments, format);
    Keep("variadic", level, tag, ToUtf8(FormatWide(format, arguments)));
    va_end(arguments);
  }
  void LogException(const char* tag, const std::exception& exception, const char* context, std::va_list arguments) override {
    Keep("exception", {}, tag, FormatNarrow(context, arguments) + ": " + Describe(exception));
  }
  void LogExceptionAtLevel(log::LogLevel level, const char* tag, const std::exception& exception, const char* context,
                           std::va_list arguments) override {
    Keep("exception at", level, tag, FormatNarrow(context, arguments) + ": " + Describe(exception));
  }
  void LogWide(log::LogLevel level, const char* tag, const wchar_t* format, std::va_list arguments) override {
    Keep("wide", level, tag, ToUtf8(FormatWide(format, arguments)));
  }
  void LogNarrow(log::LogLevel level, const char* tag, const char* format, std::va_list arguments) override {
    Keep("narrow", level, tag, FormatNarrow(format, arguments));
  }
  void OpenLogFile(const wchar_t* path, std::uint64_t roll_size, bool append) override {
    Keep("open", {}, "", ToUtf8(path) + " " + std::to_string(roll_size) + (append ? " true" : " false"));
  }

 private:
  void Keep(const char* operation, log::LogLevel level, const char* tag, const std::string& text) {
    if (behaviour == CapturedLog::Behaviour::throws) throw std::runtime_error("the log library fails");
    const std::lock_guard lock(mutex);
    records.push_back(std::string(operation) + " " + std::to_string(static_cast<unsigned>(level)) + " " + tag + ": " + text);
  }
};

class Module : public log::detail::ILogModule {
 public:
  virtual ~Module() = default;
  std::shared_ptr<log::detail::ILogger> Logger() override {
    return behaviour == CapturedLog::Behaviour::no_logger ? nullptr : logger_;
  }
  long references() const { return logger_.use_count() - 1; }

 private:
  std::shared_ptr<test::Logger> logger_ = std::make_shared<test::Logger>();
};

// Never destroyed, as log.dll outlives what logs while the program ends.
const std::shared_ptr<Module>& TheModule() {
  static const auto& module = *new auto(std::make_shared<Module>());
  return module;
}

}  // namespace

CapturedLog::CapturedLog() { clear(), behaviour = Behaviour::normal, acquired = 0; }
CapturedLog::~CapturedLog() { behaviour = Behaviour::normal; }
std::vector<std::string> CapturedLog::lines() const {
  const std::lock_guard lock(mutex);
  return records;
}
std::vector<std::string> CapturedLog::module_lines() const {
  std::vector<std::string> own = lines();
  std::erase_if(own, [](const std::string& line) { return line.find(" crashguard: ") != std::string::npos; });
  return own;
}
void CapturedLog::clear() {
  const std::lock_guard lock(mutex);
  records.clear();
}
void CapturedLog::Behave(Behaviour wanted) { behaviour = wanted; }
long CapturedLog::live_references() const { return TheModule().use_count() - 1 + TheModule()->references(); }
int CapturedLog::acquisitions() const { return acquired; }

}  // namespace crv::test

namespace crv::log::detail {

std::shared_ptr<ILogModule> AcquireLogModule() {
  ++test::acquired;
  return test::behaviour == test::CapturedLog::Behaviour::no_module ? nullptr : test::TheModule();
}

}  // namespace crv::log::detail
