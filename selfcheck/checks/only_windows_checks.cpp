// What Wine cannot show: checks of the system's part, on which kiv relies.
#include <kiv/kiv.hpp>

#include "checks/checks.h"
#include "ground/ground.h"

namespace selfcheck {
namespace {

Finding obeysProxy(Ground& ground) {
  kiv::HttpClient client(kTarget, L"kiv-selfcheck");
  client.set_proxy(kiv::ProxyConfig::parse(L"http://" + ground.address(Server::OpenProxy)));
  const int status = client.head();
  const bool seen = !ground.asked(Server::OpenProxy).empty();
  if (status == 200 && seen) return {Verdict::Pass, "The proxy received the request and answered it."};
  return {Verdict::Fail, seen ? "The proxy received the request, and the client got another answer."
                              : "The proxy did not receive the request."};
}

Finding answersBasic(Ground& ground) {
  kiv::HttpClient client(kTarget, L"kiv-selfcheck");
  const kiv::Credential credential(kUser, kPassword);
  client.set_proxy(kiv::ProxyConfig::parse(L"http://" + ground.address(Server::BasicProxy), credential));
  if (client.head() == 200) return {Verdict::Pass, "The proxy got the credentials after its 407."};
  return {Verdict::Fail, ground.asked(Server::BasicProxy).empty() ? "The proxy did not receive the request."
                                                                  : "The proxy's 407 was not answered rightly."};
}

constexpr Check kChecks[] = {
    {"a-proxy-of-a-request-is-obeyed", "Is a proxy that is set on a request obeyed?", obeysProxy},
    {"a-407-is-answered-with-credentials", "Is a proxy's 407 answered with the credentials given?", answersBasic},
};

}  // namespace

Group onlyWindowsChecks() { return {"What only Windows shows", kChecks}; }

}  // namespace selfcheck
