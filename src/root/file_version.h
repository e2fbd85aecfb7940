// The version of a program or library file, as its version resource states it. No state; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::root {

struct FileVersion {
  std::uint16_t major;
  std::uint16_t minor;
  std::uint16_t build;
  std::uint16_t revision;
};

// The file version, not the product version. Throws `crv::exceptions::error` with the last error and the name of the failed
// call, "GetFileVersionInfoSizeW" (also for a file without version resource), "GetFileVersionInfoW" or "VerQueryValueW", or with
// "VerQueryValueW signature is invalid" for a damaged resource.
FileVersion GetFileVersion(const std::wstring& path);

}  // namespace crv::root
