// The system headers, in the one order in which they compile; nothing else in src/ includes them.
#pragma once

// clang-format off
#include <windows.h>
#include <winhttp.h>
#include <wincred.h>
#include <dpapi.h>
#include <combaseapi.h>
// clang-format on

// Not in every toolchain's wincred.h.
#ifndef CRED_PACK_PROTECTED_CREDENTIALS
#define CRED_PACK_PROTECTED_CREDENTIALS 0x1
#endif
