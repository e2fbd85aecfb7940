// The one export of log.dll and the module object behind it.
#include "base/log_library.h"
#include "log/control.h"
#include "log/logger.h"
#include "log/scripted_failure.h"

namespace crv::standins::log {
namespace {

class LogModule final : public crv::log::detail::ILogModule {
 public:
  std::shared_ptr<crv::log::detail::ILogger> Logger() override {
    ThrowIfScripted(kLogLogger);
    if (ReadLogScript().no_logger) return {};
    return logger_;
  }

 private:
  const std::shared_ptr<log::Logger> logger_ = std::make_shared<log::Logger>();
};

}  // namespace
}  // namespace crv::standins::log

namespace crv::log::detail {

// The module object lives until the library is unloaded, which is the end of the process.
std::shared_ptr<ILogModule> AcquireLogModule() {
  static const auto module = std::make_shared<standins::log::LogModule>();
  standins::log::ThrowIfScripted(standins::kLogAcquire);
  if (standins::ReadLogScript().no_module) return {};
  return module;
}

}  // namespace crv::log::detail
