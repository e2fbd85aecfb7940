#include "dumper/control.h"

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Corvid Stand-ins\\Dumper";
constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins Dumper";
constexpr wchar_t kRuns[] = L"Runs";

}  // namespace

DumperBehaviour ReadDumperBehaviour() {
  return {registry::ReadText(kKey, L"Behaviour").value_or(kDumperWrites), registry::ReadNumber(kKey, L"ExitCode").value_or(0)};
}

void ScriptDumper(const DumperBehaviour& behaviour) {
  registry::WriteText(kKey, L"Behaviour", behaviour.what);
  registry::WriteNumber(kKey, L"ExitCode", behaviour.exit_code);
}

std::vector<std::wstring> DumperRuns() { return registry::ReadList(kKey, kRuns); }

void AddDumperRun(const std::wstring& command_line) {
  const NamedLock lock(kLock);
  std::vector<std::wstring> runs = DumperRuns();
  runs.push_back(command_line);
  registry::WriteList(kKey, kRuns, runs);
}

void ClearDumper() { registry::DeleteKey(kKey); }

}  // namespace crv::standins
