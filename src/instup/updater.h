// Updates the suite with its own installer, in two runs. No state.
#pragma once

#include <cstdint>

namespace crv::instup {

// Runs the current installer with "/instop:update_setup /wait" and, when it ends with 0, the new installer, located anew, with
// "/instop:update_vps_and_program /wait". Blocks the calling thread until the runs have ended, without a limit. Returns true when
// the installer was located and every attempted run could be started. Both places may be null:
// - `exit_code` receives the exit code of the last run that ended, 0 when none did;
// - `reboot` (one byte, 0 or 1) receives whether a restart of the system is due, only after the second run was started.
// Throws what CheckRebootMarker throws, when `reboot` is given.
[[nodiscard]] bool RunUpdater(std::uint32_t* exit_code, std::uint8_t* reboot);

}  // namespace crv::instup
