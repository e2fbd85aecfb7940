// The classes into which the common OS library sorts the versions of Windows. Calls no Windows function. Any thread.
#pragma once

#include <cstdint>

namespace crv::root {

inline constexpr int kOsClassUnknown = 0;  // neither NT nor 4.x
inline constexpr int kOsClassXp = 12;      // 5.1 and 5.2
inline constexpr int kOsClassVista = 13;
inline constexpr int kOsClass7 = 14;
inline constexpr int kOsClass8 = 15;
inline constexpr int kOsClass81 = 16;
inline constexpr int kOsClass10 = 17;  // and everything later

// The class, 0 to 17, of a version as the system reports it. `build` is the whole 32-bit field, which on the 9x family holds the
// version in its upper half.
int ComputeOsClass(std::uint32_t platform_id, std::uint32_t major, std::uint32_t minor, std::uint32_t build) noexcept;

}  // namespace crv::root
