// The group "Resources": does anything grow when resolutions are repeated?
#include <functional>
#include <string>

#include "checks/checks.h"
#include "checks/expectations.h"
#include "checks/own_candidates.h"
#include "checks/process_resources.h"
#include "ground/ground.h"
#include "kiv/kiv.hpp"
#include "kiv/session.hpp"

namespace selfcheck {
namespace {

constexpr std::size_t kTimes = 20;

// Whether something is lost each time, or nearly so.
Finding judge(Ground& ground, const std::function<bool()>& once, std::string_view pass) {
  bool worked = true;
  const Resources grown = leastGrowth([&] {
    for (std::size_t i = 0; i < kTimes; ++i) worked = once() && worked;
    ground.forget();
    ground.waitUntilIdle();
  });
  constexpr std::size_t kSome = kTimes / 5;
  constexpr std::size_t kSomeBytes = kTimes * 1024;
  Expectations expected;
  expected.that(worked, "What was repeated did not work each time");
  expected.that(grown.handles < kSome, "Handles are lost");
  expected.that(grown.bytes < kSomeBytes, "Memory is lost");
  expected.that(grown.threads < kSome, "Threads are left running");
  return expected.finding(pass);
}

Finding repeatsResolutions(Ground& ground) {
  kiv::Request request;
  request.url = ground.url("/");
  request.user_agent = kAgent;
  request.bypass_list = L"";
  request.preferred = kiv::ProxyConfig::direct();
  request.filter = [](const kiv::ProxyConfig& candidate) { return candidate.is_direct(); };
  return judge(
      ground, [&] { return kiv::resolve_with_client(request).is_direct(); },
      "Handles, private memory and threads do not grow when resolutions are repeated.");
}

Finding repeatsDecisions(Ground& ground) {
  kiv::Session session(kAgent, ownCandidatesOnly());
  session.set_preferred_proxy(L"http://" + ground.address(Server::OpenProxy));
  return judge(
      ground,
      [&] {
        session.forget();
        return session.resolve(kTarget).is_proxy();
      },
      "Handles, private memory and threads do not grow when decisions are repeated.");
}

constexpr Check kChecks[] = {
    {"resources-of-resolutions", "Does anything grow with resolutions of kiv.dll?", repeatsResolutions},
    {"resources-of-decisions", "Does anything grow with decisions of a session?", repeatsDecisions},
};

}  // namespace

Group resourceChecks() { return {"Resources", kChecks}; }

}  // namespace selfcheck
