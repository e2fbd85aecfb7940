#include "avmgr/actions.h"
#include "avmgr/elevated.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "entry/modes.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

[[noreturn]] void ThrowUnsupported(const CommandLine& command_line) {
  throw exceptions::error("unsupported cmdline options: %ls", command_line.text().c_str());
}

}  // namespace

void RunAvMode(const CommandLine& command_line) {
  if (command_line.has(L"enable")) {
    enable();
  } else if (command_line.has(L"disable")) {
    run_elevated(command_line, disable);
  }
  if (command_line.has(L"update")) update();
  if (command_line.has(L"upgrade")) log::Info(tag, L"Upgrading AV.");
}

void RunAsMode(const CommandLine& command_line) {
  if (command_line.has(L"enable")) {
    enable();
  } else if (command_line.has(L"disable")) {
    run_elevated(command_line, disable);
  } else {
    ThrowUnsupported(command_line);
  }
}

void RunFwMode(const CommandLine& command_line) {
  if (!command_line.has(L"enable")) ThrowUnsupported(command_line);
  start_firewall();
}

}  // namespace crv::wsc
