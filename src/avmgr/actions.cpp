#include "avmgr/actions.h"

#include <cstdint>

#include "avmgr/av_manager.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "instup/updater.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

}  // namespace

void enable() {
  AvManager manager;
  log::Info(tag, L"wsc starting providers");
  manager.set_providers_running(true);
}

void disable() { throw exceptions::error("wsc disable refused"); }

void update() {
  log::Info(tag, L"Updating AV.");
  std::uint32_t exit_code = 0;
  if (!instup::RunUpdater(&exit_code, nullptr)) throw exceptions::error("update program failed");
  if (exit_code != 0) throw exceptions::error(exit_code, "setup run failed");
}

}  // namespace crv::wsc
