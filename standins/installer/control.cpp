#include "installer/control.h"

#include <cstdio>
#include <iterator>

#include "shared/named_lock.h"
#include "shared/registry.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLock[] = L"Global\\Corvid Stand-ins Installer";
constexpr wchar_t kRuns[] = L"Runs";
constexpr wchar_t kBesideAnother[] = L"beside another run: ";
constexpr wchar_t kEnded[] = L" = 0x";

std::wstring KeyOf(const std::wstring& operation) { return std::wstring(kInstallerKey) + L"\\" + operation; }

}  // namespace

InstallerBehaviour ReadInstallerBehaviour(const std::wstring& operation) {
  const std::wstring key = KeyOf(operation);
  InstallerBehaviour behaviour;
  behaviour.exit_code = registry::ReadNumber(key, L"ExitCode").value_or(0);
  behaviour.duration = registry::ReadNumber(key, L"Duration").value_or(0);
  behaviour.new_directory = registry::ReadText(key, L"NewDirectory").value_or(L"");
  behaviour.leave_reboot = registry::ReadNumber(key, L"LeaveReboot").value_or(0) != 0;
  behaviour.remove_settings = registry::ReadNumber(key, L"RemoveSettings").value_or(0) != 0;
  return behaviour;
}

void ScriptInstaller(const std::wstring& operation, const InstallerBehaviour& behaviour) {
  const std::wstring key = KeyOf(operation);
  registry::WriteNumber(key, L"ExitCode", behaviour.exit_code);
  registry::WriteNumber(key, L"Duration", behaviour.duration);
  registry::WriteText(key, L"NewDirectory", behaviour.new_directory);
  registry::WriteNumber(key, L"LeaveReboot", behaviour.leave_reboot);
  registry::WriteNumber(key, L"RemoveSettings", behaviour.remove_settings);
}

std::vector<std::wstring> InstallerRuns() { return registry::ReadList(kInstallerKey, kRuns); }

void BeginInstallerRun(const std::wstring& command_line) {
  const NamedLock lock(kLock);
  std::vector<std::wstring> runs = InstallerRuns();
  const bool beside_another = !runs.empty() && runs.back().find(kEnded) == std::wstring::npos;
  runs.push_back((beside_another ? kBesideAnother : L"") + command_line);
  registry::WriteList(kInstallerKey, kRuns, runs);
}

void EndInstallerRun(const std::wstring& command_line, DWORD exit_code) {
  const NamedLock lock(kLock);
  std::vector<std::wstring> runs = InstallerRuns();
  wchar_t code[16];
  _snwprintf(code, std::size(code), L"%08x", static_cast<unsigned>(exit_code));
  for (std::wstring& run : runs) {
    if (run.ends_with(command_line)) run += kEnded + std::wstring(code);
  }
  registry::WriteList(kInstallerKey, kRuns, runs);
}

void ClearInstaller() { registry::DeleteKey(kInstallerKey); }

}  // namespace crv::standins
