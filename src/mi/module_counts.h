// How many modules and other exported objects of this library are alive, in one process-wide 64-bit value: modules in its low 32
// bits, exported objects in its high 32 bits. Each half wraps around without touching the other. Nothing throws; any thread.
#pragma once

#include <cstdint>

namespace crv::mi {

struct ModuleCounts {
  std::uint32_t modules;
  std::uint32_t exported_objects;
};

// Both counts at one moment.
ModuleCounts LiveCounts() noexcept;

void AddModule() noexcept;
void RemoveModule() noexcept;
void AddExportedObject() noexcept;
void RemoveExportedObject() noexcept;

}  // namespace crv::mi
