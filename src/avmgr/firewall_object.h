// The firewall object of the suite's library crvData.dll. The library hands it out and keeps it. Its operations are those of a C++
// interface, with the compiler's own calling convention for members; used on one thread.
#pragma once

#include <cstdint>

namespace crv::wsc {

// Of the operations the module calls the 21st alone. The class has a name that other files know: of one that only this module can
// derive from, the compiler concludes that nobody does, and calls nothing.
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
