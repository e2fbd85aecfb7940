// Stack that a thread keeps for handling its own overflow. Windows leaves a few pages below the guard page, Wine 8 less than one:
// too little for dispatching the exception and dumping it. Windows XP cannot be asked for more.
#pragma once

#include <windows.h>

namespace crv::platform {

// Keeps `bytes` for the calling thread, or what it kept before if that was more. A refusal changes nothing.
void GuaranteeStack(ULONG bytes);

}  // namespace crv::platform
