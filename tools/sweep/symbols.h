// The functions around each call that wsc.dll makes, from the file wsc.names that tools/sweep/run makes of its program database: a line
// for each place behind a call, "ADDRESS<tab>FUNCTION<tab>FUNCTION...", the address from the library's start, in hexadecimal, and the
// innermost function first; the others are those that it was inlined into.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace crv::sweep {

class Symbols {
 public:
  explicit Symbols(const std::wstring& path);

  // For an address that is not in the file the address itself.
  std::vector<std::string> NamesAt(DWORD address) const;

 private:
  std::map<DWORD, std::vector<std::string>> names_;
};

}  // namespace crv::sweep
