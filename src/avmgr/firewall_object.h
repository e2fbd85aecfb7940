// The firewall object of the suite's library crvData.dll. The library hands it out and keeps it. Its operations use the C calling
// convention, as all functions of the library do: the object comes first on the stack, not in a register. Used on one thread.
#pragma once

#include <cstdint>

namespace crv::wsc {

// Of the operations the module calls the 21st alone. The class has a name that other files know: of one that only this module can
// derive from, the compiler concludes that nobody does, and calls nothing.
class IFirewall {
 public:
  virtual void __cdecl Reserved1() = 0;
  virtual void __cdecl Reserved2() = 0;
  virtual void __cdecl Reserved3() = 0;
  virtual void __cdecl Reserved4() = 0;
  virtual void __cdecl Reserved5() = 0;
  virtual void __cdecl Reserved6() = 0;
  virtual void __cdecl Reserved7() = 0;
  virtual void __cdecl Reserved8() = 0;
  virtual void __cdecl Reserved9() = 0;
  virtual void __cdecl Reserved10() = 0;
  virtual void __cdecl Reserved11() = 0;
  virtual void __cdecl Reserved12() = 0;
  virtual void __cdecl Reserved13() = 0;
  virtual void __cdecl Reserved14() = 0;
  virtual void __cdecl Reserved15() = 0;
  virtual void __cdecl Reserved16() = 0;
  virtual void __cdecl Reserved17() = 0;
  virtual void __cdecl Reserved18() = 0;
  virtual void __cdecl Reserved19() = 0;
  virtual void __cdecl Reserved20() = 0;
  virtual std::uint32_t __cdecl Start(std::uint32_t argument) = 0;  // 0: success

 protected:
  ~IFirewall() = default;  // never through this interface
};

}  // namespace crv::wsc
