// One test request, from opening to its final status.
#pragma once

#include "http/client_settings.h"
#include "log/logger.h"
#include "support/platform.h"

namespace kiv::impl {

// Sends one request with the given verb, answers one proxy and one server challenge, and gives the status of the last
// answer, or -1. Schemes that it chooses are left in `schemes`. The client must be valid; `connection` may be null,
// which fails like any connection that cannot be used.
int runRequest(HINTERNET connection, const wchar_t* verb, const ClientSettings& client, ChosenSchemes& schemes,
               const Logger& logger);

}  // namespace kiv::impl
