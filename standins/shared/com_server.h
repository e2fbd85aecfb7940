// The COM libraries that lie beside centre.exe: has them register themselves and take that back. Failures throw
// crv::exceptions::error.
#pragma once

namespace crv::standins {

void RegisterServer(const wchar_t* file);
void UnregisterServer(const wchar_t* file);

}  // namespace crv::standins
