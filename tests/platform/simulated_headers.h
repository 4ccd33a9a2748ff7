// The system headers for what the simulator knows beyond the library's own list, in the one order in which they
// compile.
#pragma once

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include "support/platform.h"
#include <iphlpapi.h>
#include <netioapi.h>
#ifndef SECURITY_WIN32
#define SECURITY_WIN32
#endif
#include <sspi.h>
// clang-format on
