/* What somebody puts beside a program under the name of a library of the system's. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID reserved) {
  (void)library, (void)reason, (void)reserved;
  return TRUE;
}
