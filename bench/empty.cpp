// A library with nothing in it but what the compiler puts there, and the system libraries that the module imports.
#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

extern "C" {

__declspec(dllexport) void* imported[] = {reinterpret_cast<void*>(&CoInitializeEx), reinterpret_cast<void*>(&SysAllocString),
                                          reinterpret_cast<void*>(&RegCloseKey)};

BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) { return TRUE; }

}  // extern "C"
