#include "root/os_class.h"

namespace crv::root {
namespace {

constexpr std::uint32_t kPlatformNt = 2;  // VER_PLATFORM_WIN32_NT

int NtClass(std::uint32_t major, std::uint32_t minor) {
  if (major < 5) return 10;
  if (major == 5) return minor == 0 ? 11 : kOsClassXp;
  if (major > 6) return kOsClass10;
  switch (minor) {
    case 0: return kOsClassVista;
    case 1: return kOsClass7;
    case 2: return kOsClass8;
    case 3: return kOsClass81;
    default: return kOsClass10;
  }
}

// Version 4 of the 9x family: 95, 98 and Millennium, the first two with their second editions.
int Class9x(std::uint32_t minor, std::uint32_t build) {
  if (minor == 0) return build < 1111 ? 1 : 2;
  if (minor < 90) return build < 2222 ? 3 : 4;
  return 5;
}

}  // namespace

int ComputeOsClass(std::uint32_t platform_id, std::uint32_t major, std::uint32_t minor, std::uint32_t build) noexcept {
  if (platform_id == kPlatformNt) return NtClass(major, minor);
  return major == 4 ? Class9x(minor, build) : kOsClassUnknown;
}

}  // namespace crv::root
