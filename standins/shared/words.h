// What the areas make of the words that a person gives them.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace crv::standins {

inline constexpr wchar_t kNothing[] = L"\u2014";  // in a table, for what is not there

// "250", "0xc0000022"; anything else throws UsageError.
DWORD NumberFrom(const std::wstring& word);

inline constexpr wchar_t kWaitAnd[] = L"wait-and";  // the command of the program that RunLater starts

// Starts another centre.exe that waits `delay` ms and then runs the command, and returns at once. Its output goes nowhere, but under
// Wine it holds the standard error output of this one open. Throws crv::exceptions::error when it cannot be started.
void RunLater(DWORD delay, const std::vector<std::wstring>& words);

}  // namespace crv::standins
