// The probe of one route: a request of the tool's own beside the one of kiv.dll, of which more is known.
#pragma once

#include <chrono>
#include <string>

#include "kiv/kiv.hpp"
#include "probe/findings.h"

namespace kiv::tool {

struct ProbePlan {
  std::wstring url;
  ProxyConfig route;  // a proxy or direct
  std::wstring userAgent;
  const wchar_t* method = L"HEAD";
  Credential proxyCred;   // none: Windows may log on as the user
  Credential serverCred;  // likewise
  // False after credentials were rejected: to send them again could lock the account.
  bool answersChallenges = true;
  bool ignoreCertErrors = false;
  std::chrono::milliseconds limit{};
};

RouteFindings probeRoute(const ProbePlan& plan);

}  // namespace kiv::tool
