// The functions of wsc.dll by address, from the symbol table that the linker leaves in the file.
#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace crv::sweep {

class Symbols {
 public:
  // Reads the library beside this program; without a symbol table every name is an address.
  explicit Symbols(const std::wstring& path);

  // The C++ name of the function with that address, counted from the library's start.
  std::string NameAt(DWORD address) const;

 private:
  void ReadSymbols(const std::string& image, DWORD table, DWORD count, const IMAGE_SECTION_HEADER* sections);

  std::map<DWORD, std::string> names_;
};

}  // namespace crv::sweep
