// Any text as a command line: what is put together again has to be taken apart to the same. Each input byte is one character.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/command_line.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// Only a blank or a double quote makes a switch quoted, so other white space in it splits it in two; a word of nothing but double
// quotes gains one.
bool ComesBack(const crv::CommandLine& line) {
  for (const auto& [name, value] : line.switches()) {
    if ((name + value).find_first_of(L"\t\r\n") != std::wstring::npos) return false;
  }
  for (const std::wstring& word : line.words()) {
    if (word.find_first_not_of(L'"') == std::wstring::npos) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text(data, data + size);
  crv::CommandLine line;
  line.parse(text.c_str());
  for (const auto& [name, value] : line.switches()) {
    Require(name.find(L':') == std::wstring::npos && line.has(name.c_str()) && line.value(name.c_str()) == value);
  }
  for (const std::wstring& word : line.words()) Require(!word.empty() && word.front() != L'/');
  if (!ComesBack(line)) return 0;
  crv::CommandLine again;
  again.parse((L"program " + line.arguments()).c_str());
  Require(again.words() == line.words() && again.arguments() == line.arguments());
  const auto switches = again.switches(), wanted = line.switches();
  Require(std::equal(switches.begin(), switches.end(), wanted.begin(), wanted.end()));
  return 0;
}
