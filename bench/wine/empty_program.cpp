// Does nothing. It has the import table of the program, so the system maps and initialises the same libraries for it.

#include <windows.h>

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) { return 0; }
