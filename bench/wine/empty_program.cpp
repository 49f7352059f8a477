// Does nothing. Its import table is the program's own, so that the system maps and initialises the same libraries for
// it.

#include <windows.h>

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) { return 0; }
