// What SetDllDirectoryW has to be given so that the current folder is no place to load libraries from: an empty text. Wine 8 takes
// an empty text for none and keeps the current folder; there it is the system's folder, which the search reaches next in any case.
#pragma once

#include <string>

namespace crv::platform {

[[nodiscard]] std::wstring EmptyDllDirectory();

}  // namespace crv::platform
