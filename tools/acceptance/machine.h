// What kind of Windows this is, and what it lacks that some tests need.
#pragma once

#include <string>
#include <vector>

namespace crv::acceptance {

std::string MachineText();  // "Windows 10.0.19045, 64-bit (Microsoft Windows 10 Pro)"

// A property of the machine that keeps tests from holding on it.
enum class Trait {
  real_windows,       // no Wine: another version cannot be pretended
  real_xp,            // as real_windows, of version 5
  real_64_bit,        // as real_windows: a 32-bit driver cannot be loaded
  reactos,            // an NT 5.2 of its own kind
  guarded,            // the system lets nobody take the place of Security Center's classes or services
  no_ctrl_routine,    // its function that handles Ctrl-C has no name
  folders_from_hive,  // it looks for its folders below HKEY_LOCAL_MACHINE of the process, which tests redirect
};

// Finds out by trying. `guarded` is what the staging found.
std::vector<Trait> MachineTraits(bool guarded);

}  // namespace crv::acceptance
