// One request to a server with TLS, straight through WinHTTP: what the system says of its certificate.
#pragma once

#include <string>

#include "support/platform.h"

namespace selfcheck {

struct SecureRequest {
  std::wstring url;
  std::wstring proxy{};       // of the session; empty for none
  DWORD ignoredProblems = 0;  // SECURITY_FLAG_IGNORE_... of the server's certificate
};

struct SecureAnswer {
  DWORD status = 0;               // 0 if the request failed
  DWORD error = 0;                // of the failure
  DWORD certificateProblems = 0;  // WINHTTP_CALLBACK_STATUS_FLAG_..., where the system said so
  bool saidProblems = false;
};

SecureAnswer send(const SecureRequest& request);

}  // namespace selfcheck
