#include "sweep/symbols.h"

#include <cstdio>
#include <sstream>

#include "sweep/machine.h"

namespace crv::sweep {

Symbols::Symbols(const std::wstring& path) {
  std::istringstream lines(ReadText(path));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string address;
    std::getline(fields, address, '\t');
    std::vector<std::string>& names = names_[std::stoul(address, nullptr, 16)];
    for (std::string name; std::getline(fields, name, '\t');) names.push_back(name);
  }
}

std::vector<std::string> Symbols::NamesAt(DWORD address) const {
  const auto found = names_.find(address);
  if (found != names_.end()) return found->second;
  char text[16];
  _snprintf(text, sizeof(text), "0x%lx", address);
  return {text};
}

}  // namespace crv::sweep
