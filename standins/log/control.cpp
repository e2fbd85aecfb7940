#include "log/control.h"

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLockName[] = L"Global\\Corvid Stand-ins Log Script";
constexpr wchar_t kNoModule[] = L"NoModule";
constexpr wchar_t kNoLogger[] = L"NoLogger";
constexpr wchar_t kThrow[] = L"Throw";
constexpr wchar_t kThrowCount[] = L"ThrowCount";

bool Throws(const LogScript& script, const wchar_t* operation) {
  return (script.throw_from == operation || script.throw_from == kLogAll) && script.throw_count.value_or(1) > 0;
}

}  // namespace

LogScript ReadLogScript() {
  if (!registry::KeyExists(kLogKey)) return {};
  LogScript script;
  script.no_module = registry::ReadNumber(kLogKey, kNoModule) == 1u;
  script.no_logger = registry::ReadNumber(kLogKey, kNoLogger) == 1u;
  script.throw_from = registry::ReadText(kLogKey, kThrow).value_or(L"");
  script.throw_count = registry::ReadNumber(kLogKey, kThrowCount);
  return script;
}

void ScriptLog(const LogScript& script) {
  const NamedLock lock(kLockName);
  registry::DeleteKey(kLogKey);
  if (script.no_module) registry::WriteNumber(kLogKey, kNoModule, 1);
  if (script.no_logger) registry::WriteNumber(kLogKey, kNoLogger, 1);
  // The count first: a reader must not see a limited failure without its limit.
  if (script.throw_count) registry::WriteNumber(kLogKey, kThrowCount, *script.throw_count);
  if (!script.throw_from.empty()) registry::WriteText(kLogKey, kThrow, script.throw_from);
}

void ClearLogScript() { ScriptLog({}); }

bool TakeLogFailure(const wchar_t* operation) {
  const LogScript script = ReadLogScript();
  if (!Throws(script, operation)) return false;
  if (!script.throw_count) return true;
  const NamedLock lock(kLockName);
  const LogScript now = ReadLogScript();
  if (!Throws(now, operation)) return false;
  if (now.throw_count) registry::WriteNumber(kLogKey, kThrowCount, *now.throw_count - 1);
  return true;
}

}  // namespace crv::standins
