// Reads a settings file of the suite's installer, which may be writing it meanwhile: the file is read whole under a shared lock.
// No state; any thread.
#pragma once

#include <string>
#include <vector>

#include "instup/settings_tree.h"

namespace crv::instup {

// The file's bytes as text by their first bytes: UTF-16 of either byte order and UTF-8 with their signatures, anything else as
// UTF-8. An odd last byte of UTF-16 is dropped; invalid UTF-8 becomes U+FFFD.
std::wstring DecodeSettings(const std::vector<char>& bytes);

// Replaces the tree by the parse of the file. Waits without a limit while another process holds an exclusive lock on any part of
// it. Returns false on failure and leaves the tree as it was; the last error is that of the failed step, 223 for a file of 4 GiB
// or more, 8 when memory runs out, 0 after success.
[[nodiscard]] bool LoadSettingsFile(const std::wstring& path, SettingsTree& tree);

}  // namespace crv::instup
