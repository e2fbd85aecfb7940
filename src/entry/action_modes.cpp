#include "base/exceptions.h"
#include "base/log.h"
#include "entry/modes.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

// The actions themselves are still to come; until then every request for one of them ends here.
[[noreturn]] void ThrowNotBuilt(const char* action) {
  throw exceptions::error("the action '%s' is not built yet", action);
}

[[noreturn]] void ThrowUnsupported(const CommandLine& command_line) {
  throw exceptions::error("unsupported cmdline options: %ls", command_line.text().c_str());
}

}  // namespace

void RunAvMode(const CommandLine& command_line) {
  if (command_line.has(L"enable")) {
    ThrowNotBuilt("enable");
  } else if (command_line.has(L"disable")) {
    ThrowNotBuilt("disable");
  }
  if (command_line.has(L"update")) ThrowNotBuilt("update");
  if (command_line.has(L"upgrade")) log::Info(tag, L"Upgrading AV.");
}

void RunAsMode(const CommandLine& command_line) {
  if (command_line.has(L"enable")) {
    ThrowNotBuilt("enable");
  } else if (command_line.has(L"disable")) {
    ThrowNotBuilt("disable");
  } else {
    ThrowUnsupported(command_line);
  }
}

void RunFwMode(const CommandLine& command_line) {
  if (!command_line.has(L"enable")) ThrowUnsupported(command_line);
  ThrowNotBuilt("start firewall");
}

}  // namespace crv::wsc
