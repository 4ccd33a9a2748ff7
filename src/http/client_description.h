// The line that tells, in the log, what a request is about to use.
#pragma once

#include <string>

#include "http/client_settings.h"

namespace kiv::impl {

// JSON-like text for people: values stand in it raw, passwords as asterisks. The client must be valid.
std::wstring describe(const ClientSettings& client);

}  // namespace kiv::impl
