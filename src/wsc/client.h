// Registers, unregisters and updates the suite's products with Security Center, one kind per operation, through the back end of
// this system (back_end.h). Runs and blocks on the calling thread, which has initialised COM. Every failure throws
// `crv::exceptions::error`; what completed before it stays.
#pragma once

#include "avmgr/product_state.h"

namespace crv::wsc {

// Anti-virus.
void register_av();
void unregister_av();
void update_av(ProductState state, SignatureStatus signatures);

// Anti-spyware.
void register_as();
void unregister_as();
void update_as(ProductState state, SignatureStatus signatures);

// Firewall.
void register_fw();
void unregister_fw();
void update_fw(ProductState state);

}  // namespace crv::wsc
