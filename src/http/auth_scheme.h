// Which authentication scheme answers a challenge.
#pragma once

#include <optional>

#include "support/platform.h"

namespace kiv::impl {

// The strongest of the supported schemes (a set of WINHTTP_AUTH_SCHEME_ flags); nothing if none is known.
std::optional<DWORD> chooseScheme(DWORD supported);

// The same for a server, to which Basic would show the password in clear: over plain http it is chosen only if the
// environment variable PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME, read on each call, is set to anything but "0".
std::optional<DWORD> chooseServerScheme(DWORD supported, bool https);

}  // namespace kiv::impl
