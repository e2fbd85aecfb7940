// In place of the C runtime's bounded text functions, which Windows XP's msvcrt.dll lacks, and named as they are. Sizes are in
// characters and count the terminating NUL. True when the text fits; otherwise the destination is left empty, as it is there. No
// handler of invalid parameters is called, and no memory is taken. Any thread.
#pragma once

#include <cstddef>
#include <cwchar>

namespace crv::platform {

[[nodiscard]] bool wcscpy_s(wchar_t* destination, std::size_t size, const wchar_t* text);
[[nodiscard]] bool wcscat_s(wchar_t* destination, std::size_t size, const wchar_t* text);
[[nodiscard]] bool swprintf_s(wchar_t* destination, std::size_t size, const wchar_t* format, ...);  // "%s" takes a wide text

}  // namespace crv::platform
