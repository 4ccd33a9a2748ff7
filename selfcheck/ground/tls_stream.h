// TLS on the server's side of a connection.
#pragma once

#include <memory>

#include "ground/certificates.h"
#include "ground/stream.h"

namespace selfcheck {

// Whether this build has TLS.
bool hasTls();

// Reads and writes through TLS over `below`, which must outlive it. Null if this build has none.
std::unique_ptr<Stream> openTls(Stream& below, Certificate certificate);

}  // namespace selfcheck
