#include "platform/type_name.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <new>

namespace crv::platform {
namespace {

std::string Demangle(const char* mangled) {
  constexpr int kNoMemory = -1;
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  if (status == kNoMemory) throw std::bad_alloc();
  return name ? name.get() : mangled;
}

}  // namespace

std::string StructTypeName(const std::type_info& type) { return "struct " + Demangle(type.name()); }
std::string ClassTypeName(const std::type_info& type) { return "class " + Demangle(type.name()); }

}  // namespace crv::platform
