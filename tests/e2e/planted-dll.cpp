// A DLL that does nothing, put beside the engine under the name of a system
// library (test-libraries.sh): the engine must load the system's own library
// from the system folder, never this one.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
