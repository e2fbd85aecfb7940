#include <windows.h>

#include "avmgr/product_state.h"
#include "base/exceptions.h"
#include "entry/modes.h"
#include "root/process.h"
#include "root/self_protection.h"
#include "wsc/client.h"

namespace crv::wsc {
namespace {

// Only a process that the self-protection driver trusts may give this host orders.
void RequireTrustedStart() {
  const std::uint32_t parent = root::GetParentProcessId();
  if (root::IsTrustedProcess(parent)) return;
  throw exceptions::error(ERROR_ACCESS_DENIED, "not trusted start, parent pid: %d", static_cast<int>(parent));
}

enum class Action { update, register_products, unregister_products };

Action SelectAction(const CommandLine& command_line) {
  if (command_line.has(L"update")) return Action::update;
  if (command_line.has(L"register")) return Action::register_products;
  if (command_line.has(L"unregister")) return Action::unregister_products;
  throw exceptions::fatal(exceptions::kBadArguments, "bad action");
}

struct Products {
  bool antivirus;
  bool antispyware;
  bool firewall;
};

Products SelectProducts(const CommandLine& command_line) {
  const Products products = {command_line.has(L"antivirus"), command_line.has(L"antispyware"), command_line.has(L"firewall")};
  if (!products.antivirus && !products.antispyware && !products.firewall) {
    throw exceptions::fatal(exceptions::kBadArguments, "no product specified");
  }
  return products;
}

void Register(const Products& products) {
  if (products.antivirus) register_av();
  if (products.antispyware) register_as();
  if (products.firewall) register_fw();
}

void Unregister(const Products& products) {
  if (products.antivirus) unregister_av();
  if (products.antispyware) unregister_as();
  if (products.firewall) unregister_fw();
}

void Update(const Products& products, const CommandLine& command_line) {
  // First, so that a wrong state fails before anything is sent.
  const ProductState state = to_prod_state(command_line.value(L"state"));
  if (products.antivirus) update_av(state, to_signature_status(command_line.value(L"signatures")));
  if (products.antispyware) update_as(state, to_signature_status(command_line.value(L"signatures")));
  if (products.firewall) update_fw(state);
}

}  // namespace

void RunSvcMode(const CommandLine& command_line) {
  RequireTrustedStart();
  const Action action = SelectAction(command_line);
  const Products products = SelectProducts(command_line);
  switch (action) {
    case Action::register_products: return Register(products);
    case Action::unregister_products: return Unregister(products);
    case Action::update: return Update(products, command_line);
  }
}

}  // namespace crv::wsc
