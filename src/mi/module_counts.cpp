#include "mi/module_counts.h"

#include <atomic>

namespace crv::mi {
namespace {

constexpr std::uint32_t kOneMore = 1;
constexpr std::uint32_t kOneLess = static_cast<std::uint32_t>(-1);

std::atomic<std::uint64_t> counts{0};

constexpr ModuleCounts Split(std::uint64_t value) {
  return {static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(value >> 32)};
}

// Adds to each half without a carry between them.
void Add(std::uint32_t modules, std::uint32_t exported_objects) noexcept {
  std::uint64_t before = counts.load();
  std::uint64_t after;
  do {
    const ModuleCounts old = Split(before);
    after = std::uint64_t{old.exported_objects + exported_objects} << 32 | std::uint32_t{old.modules + modules};
  } while (!counts.compare_exchange_weak(before, after));
}

}  // namespace

ModuleCounts LiveCounts() noexcept { return Split(counts.load()); }

void AddModule() noexcept { Add(kOneMore, 0); }
void RemoveModule() noexcept { Add(kOneLess, 0); }
void AddExportedObject() noexcept { Add(0, kOneMore); }
void RemoveExportedObject() noexcept { Add(0, kOneLess); }

}  // namespace crv::mi
