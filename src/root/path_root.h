// Finds the root in the text of a path: a drive ("C:"), a server and share, a volume name, a device. Looks at the text only and
// calls no Windows function. No state; any thread.
#pragma once

#include <cstdint>

namespace crv::root {

enum PathRootFlags : std::uint32_t {
  kPathUncRoot = 0x1,            // "\\server\share", or the "UNC" form after a prefix
  kPathAbsolute = 0x2,           // two separators at the start, or a drive letter before a separator or the end
  kPathMoreFollows = 0x4,        // something other than separators follows the root
  kPathShare = 0x8,              // a share part follows the server part
  kPathSeparatorFollows = 0x10,  // separators follow the root directly
  kPathDriveRoot = 0x100,        // a drive letter
  kPathQuestionPrefix = 0x200,   // the prefix "\\?\"
  kPathDotPrefix = 0x400,        // the prefix "\\.\"
  kPathPrefixedUnc = 0x800,      // "UNC" after a prefix
  kPathVolumeGuid = 0x1000,      // "Volume{GUID}" after a prefix
  kPathDevice = 0x4000,          // "Device\name" after a prefix, behind "GlobalRoot\" or not
};

// Indexes count characters from the start of the path.
struct PathRootInfo {
  std::uint32_t root_start;     // the root's first character; 0 but for a drive after a prefix
  std::uint32_t prefix_length;  // where the root's own name begins after a prefix; 0 without one
  std::uint32_t root_end;       // the first character after the root
  std::uint32_t unused[2];      // always 0
  std::uint32_t flags;          // PathRootFlags
};

inline constexpr std::uint32_t kPathNull = 160;   // ERROR_BAD_ARGUMENTS
inline constexpr std::uint32_t kPathEmpty = 123;  // ERROR_INVALID_NAME

// Fills `info`, which may be null when only the result matters, and returns 0; kPathNull for a null path and kPathEmpty for an
// empty one leave it all zeros. "\" and "/" are separators alike; names are compared without regard to the case of ASCII letters.
[[nodiscard]] std::uint32_t GetPathRootInfo(const wchar_t* path, PathRootInfo* info) noexcept;

}  // namespace crv::root
