/* Loads the DLL that its argument names and ends: what is measured is the life of the whole process. */
#include <windows.h>

int main(int count, char** arguments) { return count == 2 && LoadLibraryA(arguments[1]) ? 0 : 1; }
