// One attempt: whether one candidate works.
#pragma once

#include <cstdint>
#include <optional>

#include "config/cred.h"
#include "core/proxy_login.h"
#include "network/connector.h"
#include "network/http_exchange.h"
#include "routes/origin.h"
#include "routes/route.h"

namespace kiv::session {

class Session;

enum class Outcome : std::uint8_t {
  Passed,
  Makeshift,  // wins only if nothing else passes
  Failed,
  NotConnected,  // no connection to the proxy could be made
  CredentialsWanted,
  SchemeUnsupported
};

struct AttemptResult {
  Outcome outcome = Outcome::Failed;
  std::uint32_t reason = 0;      // a KIV_REASON_ value of a candidate that may be the answer
  std::uint32_t authScheme = 0;  // a KIV_SCHEME_ value, if credentials were accepted
};

class AttemptListener {
 public:
  // False between a cancel and the attempt's destruction: nothing may be sent any more.
  virtual bool isWanted() const noexcept = 0;
  // In the loop.
  virtual void attemptConnected() noexcept = 0;
  // In the loop, last and once, maybe before Attempt::begin() returns. The attempt must not be destroyed inside.
  virtual void attemptEnded(AttemptResult result) noexcept = 0;

 protected:
  ~AttemptListener() = default;
};

// All under the loop's lock. Destroying it ends its work, and the listener hears nothing more.
class Attempt final : private HttpListener, private ConnectorListener, private LoginWaiter {
 public:
  Attempt(Session& session, const Origin& origin, const Route& route, AttemptListener& listener);
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;
  ~Attempt();

  void begin() noexcept;
  // Where it waits for other credentials, or for an answer; null if it does not.
  ProxyLogin* waitsAt() const noexcept { return waits_ ? login_.get() : nullptr; }

  // Whether a connection is all that can be tested of a route. WinHTTP does not speak TLS to proxies, says its
  // documentation, so of those nothing more can be known.
  static bool connectsOnly(const Session& session, const Route& route) noexcept;

 private:
  void exchangeConnected(HttpExchange& exchange) noexcept override;
  void exchangeEnded(HttpExchange& exchange, const HttpAnswer& answer) noexcept override;
  void portAnswered(Connector& connector) noexcept override;
  void connectorEnded(Connector& connector, DWORD error) noexcept override;
  void loginChanged() noexcept override;

  void beginWithSocks();
  void connect();
  void send(std::optional<impl::Cred> cred, std::uint32_t scheme);
  void challenged(const HttpAnswer& answer);
  void enterLogin();
  void accepted(AttemptResult& result) noexcept;
  AttemptResult judge(const HttpAnswer& answer) const noexcept;
  void end(AttemptResult result) noexcept;
  template <class Body>
  void orFail(Body&& body) noexcept;

  Session& session_;
  const Origin& origin_;
  const Route& route_;
  AttemptListener& listener_;
  Ref<HttpExchange> exchange_;
  Ref<Connector> connector_;
  bool connected_ = false;
  Ref<ProxyLogin> login_;
  std::optional<impl::Cred> sent_;
  std::uint32_t sentScheme_ = 0;
  std::uint32_t sentVersion_ = 0;
  bool waits_ = false;
  std::uint32_t wantedScheme_ = 0;
  std::wstring realm_;
};

}  // namespace kiv::session
