#include "crashguard/guard_log.h"

#include "platform/spare_stack.h"
#include "platform/structured_guard.h"

namespace crv::crashguard {

void RunRecord(void (*write)(void* context), void* context) noexcept {
  const platform::KnownSpareStack stack;
  static_cast<void>(platform::RunGuarded(write, context));
}

}  // namespace crv::crashguard
