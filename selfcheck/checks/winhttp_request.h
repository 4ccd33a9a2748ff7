// One request straight through WinHTTP, for checks of what kiv relies on.
#pragma once

#include <string>

#include "support/platform.h"

namespace selfcheck {

struct WinHttpRequest {
  std::wstring url;
  std::wstring proxy{};            // of the session; empty for none
  DWORD ignoredProblems = 0;       // SECURITY_FLAG_IGNORE_... of the server's certificate
};

struct WinHttpAnswer {
  DWORD status = 0;                // 0 if the request failed
  DWORD error = 0;                 // of the failure
  DWORD certificateProblems = 0;   // WINHTTP_CALLBACK_STATUS_FLAG_..., where the system said so
  bool saidProblems = false;
};

WinHttpAnswer send(const WinHttpRequest& request);

}  // namespace selfcheck
