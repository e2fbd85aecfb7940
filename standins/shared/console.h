// Output for people: UTF-8 where it is piped or redirected, the console's own text where it is not. One thread.
#pragma once

#include <string>
#include <vector>

namespace crv::standins {

void Print(const std::wstring& text);  // standard output, no line end added
void PrintLine(const std::wstring& text = L"");
void PrintUtf8(const std::string& text);    // as it is
void PrintError(const std::wstring& text);  // one line to the standard error output

// Rows as columns that line up; the first row is the heading. Without another one: "(none)".
void PrintTable(const std::vector<std::vector<std::wstring>>& rows);

}  // namespace crv::standins
