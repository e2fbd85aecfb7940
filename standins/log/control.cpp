#include "log/control.h"

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLockName[] = L"Global\\Corvid Stand-ins Log Script";
constexpr wchar_t kNoModule[] = L"NoModule";
constexpr wchar_t kNoLogger[] = L"NoLogger";
constexpr wchar_t kThrow[] = L"Throw";

}  // namespace

LogScript ReadLogScript() {
  if (!registry::KeyExists(kLogKey)) return {};
  LogScript script;
  script.no_module = registry::ReadNumber(kLogKey, kNoModule) == 1u;
  script.no_logger = registry::ReadNumber(kLogKey, kNoLogger) == 1u;
  script.throw_from = registry::ReadText(kLogKey, kThrow).value_or(L"");
  return script;
}

void ScriptLog(const LogScript& script) {
  const NamedLock lock(kLockName);
  registry::DeleteKey(kLogKey);
  if (script.no_module) registry::WriteNumber(kLogKey, kNoModule, 1);
  if (script.no_logger) registry::WriteNumber(kLogKey, kNoLogger, 1);
  if (!script.throw_from.empty()) registry::WriteText(kLogKey, kThrow, script.throw_from);
}

void ClearLogScript() { ScriptLog({}); }

bool LogThrowsFrom(const wchar_t* operation) {
  const std::wstring throws = ReadLogScript().throw_from;
  return throws == operation || throws == kLogAll;
}

}  // namespace crv::standins
