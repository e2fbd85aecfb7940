// CommandLine::parse beside CommandLineToArgvW on the same text.
#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <string>

#include "base/command_line.h"
#include "bench.h"

namespace crv::bench {
namespace {

// A command line of `length` characters: a program token, then switches with values until the text is full.
std::wstring MakeText(std::size_t length) {
  std::wstring text = L"\"C:\\Program Files\\CORVID Software\\Corvid\\wsc_proxy.exe\"";
  for (unsigned i = 0; text.size() < length; ++i) text += L" /name" + std::to_wstring(i) + L":\"a value\"";
  text.resize(length, L' ');
  return text;
}

}  // namespace

void CommandLineRows() {
  for (const std::size_t length : {100u, 10000u, 32000u}) {
    const std::wstring text = MakeText(length);
    char name[80];
    std::snprintf(name, sizeof(name), "CommandLine::parse / CommandLineToArgvW, %u characters", static_cast<unsigned>(length));
    PrintRow(
        name, 200,
        [&] {
          CommandLine command_line;
          command_line.parse(text.c_str());
        },
        [&] {
          int count = 0;
          LocalFree(CommandLineToArgvW(text.c_str(), &count));
        });
  }
}

}  // namespace crv::bench
