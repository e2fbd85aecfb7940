// crvData.dll as far as the module uses it: hands out the firewall object, whose 21st operation turns the firewall on. The other
// operations are nobody's to call here; each reports a fault.
#include <windows.h>

#include "firewall/control.h"

namespace crv::standins {
namespace {

constexpr DWORD kFault = 0xFA017;
constexpr int kBeforeStart = 20;  // operations

DWORD Fault(int operation) {
  try {
    const NamedLock lock(FirewallCalls().lock_name());
    FirewallCalls().Append(L"fault: operation " + std::to_wstring(operation));
  } catch (...) {  // the code tells as well
  }
  return kFault;
}

// One virtual operation for each number, in their order; each takes one 32-bit argument, as ordinary C++ members do (thiscall).
template <int number>
struct Slot {};

template <int count>
class Operations : public Operations<count - 1> {
 public:
  using Operations<count - 1>::Call;
  virtual DWORD Call(Slot<count>*) { return Fault(count); }
};
template <>
class Operations<0> {
 public:
  void Call(Slot<0>*);  // the end of the series; nobody defines or calls it
};

class Firewall : public Operations<kBeforeStart> {
 public:
  virtual DWORD Start(DWORD argument) {
    if (this != &the_firewall) return Fault(kBeforeStart + 1);
    return FirewallCalls().Answered<StatusCall>(L"Firewall.Start", std::to_wstring(argument), 0, [](const Answer&) {
      SetFirewallOn(true);
      return DWORD{0};
    });
  }
  virtual DWORD AfterStart(DWORD) { return Fault(kBeforeStart + 2); }

  static Firewall the_firewall;
};

Firewall Firewall::the_firewall;

}  // namespace
}  // namespace crv::standins

using namespace crv::standins;

extern "C" {

DWORD __cdecl crvGetFirewall(DWORD argument, Firewall** object) {
  return FirewallCalls().Answered<StatusCall>(L"crvGetFirewall", std::to_wstring(argument), 0, [&](const Answer& answer) {
    if (!answer.null_pointer) *object = &Firewall::the_firewall;
    return DWORD{0};
  });
}

void __cdecl crvFreeFirewall(DWORD argument) {
  FirewallCalls().Answered<StatusCall>(L"crvFreeFirewall", std::to_wstring(argument), 0, [](const Answer&) { return DWORD{0}; });
}

}  // extern "C"
