// The calling program's own import table, where one of its imported functions can be exchanged: for the program itself and the static
// libraries in it, not for calls made inside DLLs. Not for use while other threads call the function.
#pragma once

namespace crv::standins {

// The place from which calls take the function's address; null when the program does not import it by name. `library` as the table
// names it, without regard to case ("advapi32.dll").
void** FindImport(const char* library, const char* function);

void WriteImport(void** place, void* function);

}  // namespace crv::standins
