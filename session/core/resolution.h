// One resolution: from the settings to the first candidate that works, for all who ask for the same origin meanwhile.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/attempt.h"
#include "core/filtering.h"
#include "core/request.h"
#include "loop/event_loop.h"
#include "network/connector.h"
#include "network/discovery.h"
#include "routes/decision.h"
#include "routes/origin.h"
#include "routes/route.h"

namespace kiv::session {

class Session;

// How long a decision is kept.
enum class Lifetime : std::uint8_t { Kept, Failure, UntilCredentialsChange };

// All under the loop's lock.
class Resolution final : public Task, private DiscoveryListener, private AttemptListener, private ConnectorListener {
 public:
  // Throws std::bad_alloc.
  Resolution(Session& session, const Origin& origin);

  const Origin& origin() const noexcept { return origin_; }

  // Begins when the first has joined. Throws std::bad_alloc, and the request has not joined then.
  void join(Request& request);
  bool hasRequests() const noexcept { return !requests_.empty(); }
  bool hasBackgroundRequest() const noexcept { return background_ != nullptr; }
  // A request has ended before its time. The last one that leaves cancels the work.
  void leave(Request& request) noexcept;
  // In the loop: settings or network have changed.
  void beginAgain() noexcept;
  // Ends every request; the work ends with the next task. In the loop or in a call.
  void endAll(KivStatus status) noexcept;
  // In the loop: ends the work.
  void abandon() noexcept;
  void filtered(const Filtering& filtering) noexcept;
  // Whether it waits for the answer to this proxy's question.
  bool waitsFor(const ProxyLogin& login) const noexcept {
    return (attempt_ && attempt_->waitsAt() == &login) || formerLogin_.get() == &login;
  }

 private:
  enum class Phase : std::uint8_t { Waiting, Discovering, Filtering, Attempting, Over };

  struct Candidate {
    enum class State : std::uint8_t { Untried, Connecting, Connected, NotConnected };
    Route route;
    State state = State::Untried;
    Ref<Connector> connector;
  };

  // How long the first proxy may take to connect before connecting to the others begins.
  static constexpr Time kHeadStart = 300;
  static constexpr std::size_t kMostConnecting = 16;

  ~Resolution() override;
  void run() noexcept override;
  void discovered(Discovery& discovery, Discovered result) noexcept override;
  bool isWanted() const noexcept override { return phase_ == Phase::Attempting; }
  void attemptConnected() noexcept override;
  void attemptEnded(AttemptResult result) noexcept override;
  void portAnswered(Connector& connector) noexcept override;
  void connectorEnded(Connector& connector, DWORD error) noexcept override;
  void headStartPassed() noexcept;
  void overran() noexcept;

  void step();
  void discover();
  void choose();
  void takeCandidates(std::vector<Route> routes);
  void filter();
  void attempt();
  void attemptNext();
  void judge(const AttemptResult& result);
  void connectToOthers() noexcept;
  void noteDead();
  void finishWithout();
  void finish(DecisionKind kind, const Route& route, std::uint32_t authScheme, std::uint32_t reason);
  Lifetime lifetimeOf(std::uint32_t reason) const noexcept;
  void stopWork() noexcept;
  template <class Body>
  void orFail(Body&& body) noexcept;

  Ref<Session> session_;
  const Origin origin_;
  std::vector<Ref<Request>> requests_;
  const Request* background_ = nullptr;  // the one of them that nobody waits for
  Phase phase_ = Phase::Waiting;
  Ref<Discovery> discovery_;
  std::optional<Discovered> discovered_;
  Ref<Filtering> filtering_;
  std::vector<Candidate> candidates_;
  std::size_t current_ = 0;
  std::unique_ptr<Attempt> attempt_;
  std::optional<AttemptResult> result_;
  bool othersConnecting_ = false;
  std::optional<std::size_t> makeshift_;
  std::uint32_t makeshiftScheme_ = 0;
  bool wantsCredentials_ = false;
  bool lacksScheme_ = false;
  Ref<ProxyLogin> formerLogin_;  // whose question was open when the resolution began again
  DeadlineOf<Resolution, &Resolution::headStartPassed> headStart_;
  DeadlineOf<Resolution, &Resolution::overran> overrun_;
};

}  // namespace kiv::session
