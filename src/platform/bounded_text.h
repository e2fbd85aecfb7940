// The C runtime's bounded text functions, which Windows XP's msvcrt.dll lacks, under their own names. Sizes are in characters and
// count the terminating NUL. A text that does not fit leaves the destination empty, as it does there. No memory is taken.
#pragma once

#include <cstddef>
#include <cwchar>

namespace crv::platform {

bool wcscpy_s(wchar_t* destination, std::size_t size, const wchar_t* text);
bool wcscat_s(wchar_t* destination, std::size_t size, const wchar_t* text);
bool swprintf_s(wchar_t* destination, std::size_t size, const wchar_t* format, ...);  // "%s" takes a wide text

}  // namespace crv::platform
