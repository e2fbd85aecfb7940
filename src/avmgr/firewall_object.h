// The firewall object of the suite's library crvData.dll, which hands it out and keeps it. Its operations are ordinary C++ member
// functions, thiscall: the object comes in ecx, the one 32-bit argument on the stack, and the operation takes it off. Only the
// library's exports use the C calling convention. Used on one thread.
#pragma once

#include <cstdint>

namespace crv::wsc {

// The module calls the 21st operation alone. The class must not be in an unnamed namespace: the compiler would see that nobody in
// this file derives from it, take the call for one that cannot happen, and leave it out.
class IFirewall {
 public:
  virtual void Reserved1() = 0;
  virtual void Reserved2() = 0;
  virtual void Reserved3() = 0;
  virtual void Reserved4() = 0;
  virtual void Reserved5() = 0;
  virtual void Reserved6() = 0;
  virtual void Reserved7() = 0;
  virtual void Reserved8() = 0;
  virtual void Reserved9() = 0;
  virtual void Reserved10() = 0;
  virtual void Reserved11() = 0;
  virtual void Reserved12() = 0;
  virtual void Reserved13() = 0;
  virtual void Reserved14() = 0;
  virtual void Reserved15() = 0;
  virtual void Reserved16() = 0;
  virtual void Reserved17() = 0;
  virtual void Reserved18() = 0;
  virtual void Reserved19() = 0;
  virtual void Reserved20() = 0;
  virtual std::uint32_t Start(std::uint32_t argument) = 0;  // 0: success

 protected:
  ~IFirewall() = default;  // never through this interface
};

}  // namespace crv::wsc
