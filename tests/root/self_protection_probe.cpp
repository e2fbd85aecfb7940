// A library that asks the self-protection driver.
#include "root/self_protection.h"

extern "C" __declspec(dllexport) std::uint32_t Ask(std::uint32_t process_id) { return crv::root::IsTrustedProcess(process_id); }
