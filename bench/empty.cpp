// A library with nothing in it but what the compiler puts there.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) { return TRUE; }
