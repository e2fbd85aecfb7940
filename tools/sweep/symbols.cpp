#include "sweep/symbols.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "sweep/machine.h"

namespace crv::sweep {
namespace {

std::string Demangle(const std::string& name) {
  const char* const plain = name.c_str() + (name.starts_with("_") ? 1 : 0);  // the underscore of 32-bit code
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(plain, nullptr, nullptr, &status), &std::free);
  return status == 0 && text ? text.get() : plain;
}

}  // namespace

Symbols::Symbols(const std::wstring& path) {
  const std::string image = ReadText(path);
  if (image.size() < sizeof(IMAGE_DOS_HEADER)) return;
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image.data());
  const auto* const nt = reinterpret_cast<const IMAGE_NT_HEADERS32*>(image.data() + dos->e_lfanew);
  ReadSymbols(image, nt->FileHeader.PointerToSymbolTable, nt->FileHeader.NumberOfSymbols, IMAGE_FIRST_SECTION(nt));
}

void Symbols::ReadSymbols(const std::string& image, DWORD table, DWORD count, const IMAGE_SECTION_HEADER* sections) {
  if (table == 0) return;
  const char* const texts = image.data() + table + count * IMAGE_SIZEOF_SYMBOL;
  for (DWORD i = 0; i < count; ++i) {
    IMAGE_SYMBOL symbol;
    std::memcpy(&symbol, image.data() + table + i * IMAGE_SIZEOF_SYMBOL, IMAGE_SIZEOF_SYMBOL);
    i += symbol.NumberOfAuxSymbols;
    if (symbol.SectionNumber < 1 || !ISFCN(symbol.Type)) continue;
    std::string name = symbol.N.Name.Short != 0 ? std::string(reinterpret_cast<const char*>(symbol.N.ShortName), 8)
                                                : std::string(texts + symbol.N.Name.Long);
    name.resize(std::strlen(name.c_str()));
    names_[sections[symbol.SectionNumber - 1].VirtualAddress + symbol.Value] = name;
  }
}

std::string Symbols::NameAt(DWORD address) const {
  const auto above = names_.upper_bound(address);
  if (above != names_.begin()) return Demangle(std::prev(above)->second);
  char text[16];
  _snprintf(text, sizeof(text), "0x%lx", address);
  return text;
}

}  // namespace crv::sweep
