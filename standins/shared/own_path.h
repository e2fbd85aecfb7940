// Where the image lies that this code is linked into.
#pragma once

#include <string>

namespace crv::standins {

std::wstring OwnPath();  // full path of the program or library

}  // namespace crv::standins
