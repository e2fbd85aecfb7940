#include "shared/console.h"

#include <windows.h>

#include <algorithm>

#include "base/format_message.h"

namespace crv::standins {
namespace {

void Write(DWORD which, const std::wstring& text) {
  const HANDLE output = GetStdHandle(which);
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(output, &mode)) {
    WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  const std::string bytes = ToUtf8(text);
  WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace

void Print(const std::wstring& text) { Write(STD_OUTPUT_HANDLE, text); }

void PrintLine(const std::wstring& text) { Print(text + L"\r\n"); }

void PrintUtf8(const std::string& text) { Print(FromUtf8(text)); }

void PrintError(const std::wstring& text) { Write(STD_ERROR_HANDLE, text + L"\r\n"); }

void PrintTable(const std::vector<std::vector<std::wstring>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::wstring line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, L' ');
    }
    PrintLine(line);
  }
  if (rows.size() == 1) PrintLine(L"(none)");
}

}  // namespace crv::standins
