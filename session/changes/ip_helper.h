// The declarations of iphlpapi.dll. Its functions are looked up when they are needed, so the library is not loaded with
// this one.
#pragma once

#include "support/platform.h"

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>
// clang-format on
