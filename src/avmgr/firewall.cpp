#include <cstdint>

#include "avmgr/actions.h"
#include "avmgr/firewall_object.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "root/proc_address.h"
#include "root/scoped_handle.h"

namespace crv::wsc {
namespace {

const log::Tag tag("wsc");

// The library's exports use the C calling convention.
using GetFirewall = std::uint32_t __cdecl(std::uint32_t argument, IFirewall** firewall);
using FreeFirewall = void __cdecl(std::uint32_t argument);

// Ends the use of the firewall object.
class FirewallEnd {
 public:
  explicit FirewallEnd(FreeFirewall* free_firewall) : free_firewall_(free_firewall) {}
  ~FirewallEnd() { free_firewall_(0); }
  FirewallEnd(const FirewallEnd&) = delete;
  FirewallEnd& operator=(const FirewallEnd&) = delete;

 private:
  FreeFirewall* free_firewall_;
};

}  // namespace

void start_firewall() {
  log::Info(tag, L"Starting FW.");
  const root::ScopedModule library(LoadLibraryW(L"crvData.dll"));
  if (!library) throw exceptions::error("cannot load crvData.dll");
  GetFirewall* const get_firewall = root::GetProcAddressOrThrow<GetFirewall>(library.get(), "crvGetFirewall");
  FreeFirewall* const free_firewall = root::GetProcAddressOrThrow<FreeFirewall>(library.get(), "crvFreeFirewall");

  IFirewall* firewall = nullptr;
  if (const std::uint32_t status = get_firewall(0, &firewall)) throw exceptions::error(status, "cannot get firewall");
  const FirewallEnd end(free_firewall);
  if (!firewall) throw exceptions::error("cannot get firewall");
  if (const std::uint32_t status = firewall->Start(0)) {
    throw exceptions::error(status, "start firewall error");
  }
}

}  // namespace crv::wsc
