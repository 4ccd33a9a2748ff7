// Release of task memory, for builds on other systems.
#pragma once

#include <windows.h>

extern "C" void WINAPI CoTaskMemFree(LPVOID block);
