// Whom a proxy of the ground lets pass.
#include "ground/gates.h"

namespace selfcheck {
namespace {

constexpr const char* kCredentials = "Proxy-Authorization";
constexpr const char* kChallenge = "Proxy-Authenticate";

class OpenGate : public Gate {
 public:
  std::optional<Refusal> refusal(const HttpRequest& /*request*/) override { return std::nullopt; }
};

class BasicGate : public Gate {
 public:
  std::optional<Refusal> refusal(const HttpRequest& request) override {
    if (isBasicOfGround(request.header(kCredentials))) return std::nullopt;
    return Refusal{{407, {{kChallenge, "Basic realm=\"ground\""}}}};
  }
};

// Looks at no token: it may be of the logged-on user.
class OfferingGate : public Gate {
 public:
  std::optional<Refusal> refusal(const HttpRequest& request) override {
    const bool closes = !request.header(kCredentials).empty();
    return Refusal{{407, {{kChallenge, "Negotiate"}, {kChallenge, "NTLM"}}}, closes};
  }
};

}  // namespace

std::unique_ptr<Gate> gateOf(Server proxy) {
  switch (proxy) {
    case Server::BasicProxy:
      return std::make_unique<BasicGate>();
    case Server::OfferingProxy:
      return std::make_unique<OfferingGate>();
    default:
      return std::make_unique<OpenGate>();
  }
}

}  // namespace selfcheck
