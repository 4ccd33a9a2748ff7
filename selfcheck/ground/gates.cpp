// Whom a proxy of the ground lets pass.
#include "ground/gates.h"

#include "ground/ntlm_login.h"

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

class NtlmGate : public Gate {
 public:
  std::optional<Refusal> refusal(const HttpRequest& request) override {
    if (accepted_) return std::nullopt;
    const Credentials credentials = credentialsIn(request.header(kCredentials));
    if (credentials.scheme != "NTLM") return asking("NTLM");
    const NtlmLogin::Step step = login_.step(credentials.token);
    accepted_ = step.result == NtlmLogin::Result::Accepted;
    if (accepted_) return std::nullopt;
    return asking(step.token.empty() ? "NTLM" : "NTLM " + step.token);
  }

 private:
  static Refusal asking(std::string challenge) { return {{407, {{kChallenge, std::move(challenge)}}}}; }

  NtlmLogin login_;
  bool accepted_ = false;
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
    case Server::NtlmProxy:
      return std::make_unique<NtlmGate>();
    case Server::OfferingProxy:
      return std::make_unique<OfferingGate>();
    default:
      return std::make_unique<OpenGate>();
  }
}

}  // namespace selfcheck
