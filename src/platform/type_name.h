// Names of types as the documented messages show them: "struct IWscAVStatus". The GNU runtime's type information holds mangled
// names without the class key, so they are demangled here and the key is put back by the caller's choice.
#pragma once

#include <string>
#include <typeinfo>

namespace crv::platform {

// "Name" behind the key; the mangled name when it cannot be demangled. Throw std::bad_alloc, since a name may be written down.
std::string StructTypeName(const std::type_info& type);  // "struct Name"
std::string ClassTypeName(const std::type_info& type);   // "class Name"

}  // namespace crv::platform
