// The structured exception with which Microsoft's runtime throws a C++ object, for those who raise one and those who read one. On
// 32-bit Windows the addresses in it are absolute; images for other machines count them from the base in a fourth parameter.
#pragma once

#include <windows.h>

#include <cstddef>
#include <typeinfo>

namespace crv::platform {

inline constexpr DWORD kThrownObject = 0xE06D7363;  // the exception code
inline constexpr ULONG_PTR kThrowMagic = 0x19930520;

enum ThrowParameter : DWORD { kMagic, kObject, kThrowInfo, kImageBase };  // indices into ExceptionInformation
inline constexpr DWORD kThrowParameters = 3;                              // of the 32-bit form

struct TypeDescriptor {
  const void* vftable;
  void* spare;
  char name[256];  // NUL-terminated; its real size is that of the text
};

struct CatchableType {
  DWORD properties;
  DWORD type;  // TypeDescriptor
  int displacements[3];
  DWORD size;  // bytes of the object
  DWORD copy;
};

struct CatchableTypeArray {
  DWORD count;
  DWORD types[1];  // CatchableType; the first one is the thrown type itself
};

// An attribute of our own, beside the few of Microsoft's compiler: the exception was thrown before and nobody caught it; this is
// the raise that ends the process.
inline constexpr DWORD kUncaught = 0x40000000;

struct ThrowInfo {
  DWORD attributes;
  DWORD destroy;
  DWORD forward_compatibility;
  DWORD types;  // CatchableTypeArray
};

// What a thrown object of a type looks like to those who read throws. It points into itself and is only good where it lies; its
// one catchable type is the thrown one, named "class crv::exceptions::fatal" in the manner of the Microsoft runtime's type
// information. Never fails: a name that cannot be demangled, for want of memory perhaps, stays mangled.
class ThrowRecord {
 public:
  ThrowRecord(void* object, const std::type_info& type) noexcept;
  ThrowRecord(const ThrowRecord&) = delete;
  ThrowRecord& operator=(const ThrowRecord&) = delete;

  // Raises the exception for its throw; returns when a handler lets the thread go on.
  void Raise() const;

  // Raises it once more when nobody caught it, as kUncaught; no handler may let the thread go on.
  void RaiseUncaught();

  // Whether the exception is the one that this record raises.
  bool RaisedAs(const EXCEPTION_RECORD& exception) const;

 private:
  void RaiseWith(DWORD flags) const;

  TypeDescriptor descriptor_;
  CatchableType catchable_;
  CatchableTypeArray array_;
  ThrowInfo info_;
  void* object_;
};

}  // namespace crv::platform
