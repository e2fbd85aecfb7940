// The four modes of a request. Each reads the switches that it knows from the command line, ignores all others, and throws
// `crv::exceptions::error` or `crv::exceptions::fatal` on failure.
#pragma once

#include "base/command_line.h"

namespace crv::wsc {

// What Security Center asks of the suite: "av" reads enable or else disable, then update, then upgrade, and does nothing without
// any of them; "as" reads enable or else disable; "fw" reads enable.
void RunAvMode(const CommandLine& command_line);
void RunAsMode(const CommandLine& command_line);
void RunFwMode(const CommandLine& command_line);

// A request of one of the suite's own processes; the parent process has to be trusted (root/self_protection.h), or it is refused
// with code 5 and "not trusted start, parent pid: %d". Update, or else register, or else unregister, for every product that is
// named (antivirus, antispyware, firewall, in this order). An update takes the values of state and signatures. Products that were
// handled before a failure stay handled.
void RunSvcMode(const CommandLine& command_line);

}  // namespace crv::wsc
