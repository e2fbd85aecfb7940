#include "crashguard/thrown_type.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/structured_guard.h"
#include "platform/throw_record.h"

namespace crv::crashguard {
namespace {

using namespace platform;

// The type's name as the Microsoft runtime's type information gives it, as its compiler stores it, and as a throw of this module has
// it when there was no memory to demangle it.
constexpr const char* kFatalNames[] = {"class crv::exceptions::fatal", ".?AVfatal@exceptions@crv@@",
                                       "class N3crv10exceptions5fatalE"};

// Walks from the throw information to the name. Any of it may lie outside the process's memory.
bool IsNamedFatal(ULONG_PTR base, ULONG_PTR throw_info) {
  const auto* const info = reinterpret_cast<const ThrowInfo*>(throw_info);
  const auto* const array = reinterpret_cast<const CatchableTypeArray*>(base + info->types);
  if (array->count == 0) return false;
  const auto* const thrown = reinterpret_cast<const CatchableType*>(base + array->types[0]);
  const auto* const type = reinterpret_cast<const TypeDescriptor*>(base + thrown->type);
  return std::any_of(std::begin(kFatalNames), std::end(kFatalNames),
                     [&](const char* name) { return std::strcmp(type->name, name) == 0; });
}

}  // namespace

bool IsFatalException(const EXCEPTION_RECORD& record) {
  if (record.ExceptionCode != kThrownObject || record.NumberParameters <= kThrowInfo) return false;
  const ULONG_PTR throw_info = record.ExceptionInformation[kThrowInfo];
  if (!throw_info) return false;
  const ULONG_PTR base = record.NumberParameters > kImageBase ? record.ExceptionInformation[kImageBase] : 0;
  bool fatal = false;
  return !Guarded([&] { fatal = IsNamedFatal(base, throw_info); }) && fatal;
}

bool IsUncaughtAgain(const EXCEPTION_RECORD& record) {
  DWORD attributes = 0;
  const auto* const info = reinterpret_cast<const ThrowInfo*>(record.ExceptionInformation[kThrowInfo]);
  return !Guarded([&] { attributes = info->attributes; }) && (attributes & kUncaught);
}

}  // namespace crv::crashguard
