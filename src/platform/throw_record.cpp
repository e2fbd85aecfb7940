#include "platform/throw_record.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>

namespace crv::platform {
namespace {

DWORD Address(const void* pointer) { return reinterpret_cast<DWORD>(pointer); }

}  // namespace

ThrowRecord::ThrowRecord(void* object, const std::type_info& type) noexcept
    : descriptor_{}, catchable_{}, array_{}, info_{}, object_(object) {
  int status = 0;
  char* const name = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::snprintf(descriptor_.name, sizeof(descriptor_.name), "class %s", name ? name : type.name());
  std::free(name);
  descriptor_.vftable = *reinterpret_cast<const void* const*>(&type);
  catchable_.type = Address(&descriptor_);
  array_.count = 1;
  array_.types[0] = Address(&catchable_);
  info_.types = Address(&array_);
}

void ThrowRecord::Raise() const { RaiseWith(0); }

void ThrowRecord::RaiseUncaught() {
  info_.attributes = kUncaught;
  RaiseWith(EXCEPTION_NONCONTINUABLE);
}

void ThrowRecord::RaiseWith(DWORD flags) const {
  const ULONG_PTR parameters[kThrowParameters] = {kThrowMagic, reinterpret_cast<ULONG_PTR>(object_), Address(&info_)};
  RaiseException(kThrownObject, flags, kThrowParameters, parameters);
}

bool ThrowRecord::RaisedAs(const EXCEPTION_RECORD& exception) const {
  return exception.ExceptionCode == kThrownObject && exception.NumberParameters == kThrowParameters &&
         exception.ExceptionInformation[kThrowInfo] == Address(&info_);
}

}  // namespace crv::platform
