// The COM and WMI objects and the firewall object that the library gets hold of: their methods are counted and fail like functions.
#pragma once

namespace crv::sweep {

// What takes the place of a function that hands out an object, and goes on to it; null for any other function.
void* WrapperFor(const char* function, void* original);

}  // namespace crv::sweep
