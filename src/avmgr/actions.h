// What Security Center asks of the suite. Each action is complete in itself: it loads what it needs and gives it back before it
// returns. Failures throw `crv::exceptions::error`. Runs on the thread of `run`.
#pragma once

namespace crv::wsc {

// Brings all protection providers into the running state.
void enable();

// Security Center may not switch the protection off: always throws "wsc disable refused".
[[noreturn]] void disable();

// Runs the suite's updater and waits for it without a limit. A run that ends with a non-zero exit code is an error of that code.
void update();

// Turns the suite's firewall on.
void start_firewall();

}  // namespace crv::wsc
