// The baseline of bench/wine-start.sh: a Windows program of the engine's
// toolchain that does nothing.
#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) { return 0; }
