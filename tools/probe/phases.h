// How long each part of a request took, from what WinHTTP's status callback reported.
#pragma once

#include <string>
#include <vector>

#include "probe/findings.h"

namespace kiv::tool {

// One call of the status callback.
struct Notice {
  unsigned status = 0;          // a WINHTTP_CALLBACK_STATUS_ value
  microseconds at{};            // since the request began
  std::wstring text{};          // an address, or the URL of a redirect
  bool hasCertificate = false;  // a server's certificate can be read: TLS is established
};

// WinHTTP does not report TLS: it lies between the connection and the request. It is not told from the proxy's tunnel
// where WinHTTP does not report the CONNECT either. `isHttps` is about the URL that the request began with.
std::vector<Phase> phasesOf(const std::vector<Notice>& notices, bool isHttps);

}  // namespace kiv::tool
