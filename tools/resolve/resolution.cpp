// What is known of one resolution: the user's settings, each candidate's requests, the outcome and the log.
#include "resolve/resolution.h"

#include <algorithm>

namespace kiv::tool {
namespace {

Verdict verdictOn(int status) {
  if (status < 0) return Verdict::NoAnswer;
  if (status == 407) return Verdict::ProxyWantsCredentials;
  if (status == 401) return Verdict::ServerWantsCredentials;
  return status >= 200 && status <= 299 ? Verdict::Works : Verdict::NoSuccess;
}

}  // namespace

Verdict Candidate::verdict() const {
  if (invalid) return Verdict::Invalid;
  return requests.empty() ? Verdict::NotTested : verdictOn(requests.back().status);
}

bool Candidate::rejectsCredentials() const {
  return (verdict() == Verdict::ProxyWantsCredentials && proxyCredGiven) ||
         (verdict() == Verdict::ServerWantsCredentials && serverCredGiven);
}

milliseconds Candidate::duration() const {
  milliseconds sum{};
  for (const Request& request : requests) sum += request.duration;
  return sum;
}

std::optional<std::size_t> Resolution::winner() const {
  const auto working = std::ranges::find(candidates, Verdict::Works, &Candidate::verdict);
  if (working == candidates.end()) return std::nullopt;
  return static_cast<std::size_t>(working - candidates.begin());
}

}  // namespace kiv::tool
