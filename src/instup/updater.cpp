#include "instup/updater.h"

#include "base/command_line.h"
#include "instup/installer_state.h"
#include "instup/launch_process.h"

namespace crv::instup {
namespace {

// One run of the installer; true when it was started.
bool RunInstaller(const std::wstring& installer, const wchar_t* operation, std::uint32_t& exit_code) {
  CommandLine command_line;
  command_line.set_program(installer);
  command_line.set(L"instop", operation);
  command_line.set(L"wait", L"");
  return LaunchProcess(command_line.text(), &exit_code);
}

void Store(std::uint32_t* place, std::uint32_t value) {
  if (place) *place = value;
}

}  // namespace

bool RunUpdater(std::uint32_t* exit_code, std::uint8_t* reboot) {
  Store(exit_code, 0);
  State state;
  if (!state.Locate()) return false;

  std::uint32_t code = 0;
  if (!RunInstaller(state.current_installer(), L"update_setup", code)) return false;
  if (code != 0) {
    Store(exit_code, code);
    return true;
  }

  // The first run may have moved the new installer; when it cannot be located anew, the earlier place counts.
  static_cast<void>(state.Locate());
  const bool started = RunInstaller(state.new_installer(), L"update_vps_and_program", code);
  Store(exit_code, code);
  if (started && reboot) {
    bool marked = false;
    if (CheckRebootMarker(marked)) *reboot = marked ? 1 : 0;
  }
  return started;
}

}  // namespace crv::instup
