// The group "Sessions": how kiv-session.dll decides, waits, asks and authenticates, against the ground's servers.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "checks/checks.h"
#include "checks/expectations.h"
#include "checks/loopback.h"
#include "checks/own_candidates.h"
#include "common/console.h"
#include "ground/ground.h"
#include "kiv/session.hpp"
#include "support/owners.h"

namespace selfcheck {
namespace {

using namespace std::chrono_literals;
using kiv::Decision;
using kiv::Session;
using kiv::SessionCounter;
using kiv::SessionOptions;
using kiv::tool::toUtf8;

constexpr const wchar_t* kOther = L"http://other.test/";

std::wstring urlOf(const Ground& ground, Server server) { return L"http://" + ground.address(server); }

// A session with the ground's servers as its candidates.
class OwnSession {
 public:
  OwnSession(std::wstring preferred, std::optional<std::wstring> fallback, SessionOptions options = ownCandidatesOnly())
      : session_(kAgent, withFilter(std::move(options), preferred, fallback)) {
    session_.set_preferred_proxy(preferred);
    if (fallback) session_.set_fallback_proxy(*fallback);
  }

  Session* operator->() { return &session_; }
  Session& operator*() { return session_; }

 private:
  static SessionOptions withFilter(SessionOptions options, std::wstring preferred,
                                   std::optional<std::wstring> fallback) {
    options.filter = [=](std::wstring_view proxy) { return proxy == preferred || proxy == fallback; };
    return options;
  }

  Session session_;
};

// The next event of a kind; nothing if none comes.
template <class Wanted>
std::optional<Wanted> nextOf(Session& session) {
  while (auto event = session.next(kPatience)) {
    if (Wanted* const wanted = std::get_if<Wanted>(&*event)) return std::move(*wanted);
    if (std::holds_alternative<kiv::ClosedEvent>(*event)) break;
  }
  return std::nullopt;
}

bool isProxy(const Decision& decision, const std::wstring& url) { return decision.proxy_url() == url; }

// ---- Decisions

Finding reachesThroughProxy(Ground& ground) {
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt);
  const Decision decision = session->resolve(L"http://target.test/path?query");
  const std::vector<Asked> asked = ground.asked(Server::OpenProxy);
  Expectations expected;
  expected.that(decision.reason() == KIV_REASON_REACHED && isProxy(decision, urlOf(ground, Server::OpenProxy)),
                "The proxy was not the answer");
  expected.that(asked.size() == 1 && asked.front().method == "HEAD", "The proxy was not asked with one HEAD request");
  expected.that(!asked.empty() && asked.front().target.find("path") == std::string::npos,
                "The proxy was told more of the URL than its origin");
  return expected.finding("The proxy was asked with one HEAD request for the origin, and is the answer.");
}

Finding passesOverBadProxies(Ground& ground) {
  SessionOptions options = ownCandidatesOnly();
  options.answer_timeout = 500ms;
  const std::pair<Server, const char*> bad[] = {
      {Server::DeadProxy, "dead"}, {Server::ResettingProxy, "resetting"}, {Server::SilentProxy, "silent"}};
  Expectations expected;
  for (const auto& [server, name] : bad) {
    OwnSession session(urlOf(ground, server), urlOf(ground, Server::OpenProxy), options);
    expected.that(isProxy(session->resolve(kTarget), urlOf(ground, Server::OpenProxy)),
                  std::string("Behind a ") + name + " proxy, the next one was not the answer");
  }
  return expected.finding("A dead, a resetting and a silent proxy were passed over; the next one is the answer.");
}

// Connects to a session's SOCKS proxy, as the proxy: answers what is asked before the target's bytes.
bool servesSocks(LoopbackConnection connection, std::string_view scheme) {
  if (scheme == "socks4") {
    const std::string request = connection.read(8);
    return request.starts_with("\x04\x01") && connection.write(std::string_view("\0\x5A\0\0\0\0\0\0", 8));
  }
  const std::string greeting = connection.read(2);
  if (!greeting.starts_with('\x05')) return false;
  connection.read(static_cast<unsigned char>(greeting.back()));
  if (!connection.write(std::string_view("\x05\0", 2))) return false;
  return connection.read(4).starts_with("\x05\x01") &&
         connection.write(std::string_view("\x05\0\0\x01\0\0\0\0\0\0", 10));
}

Finding speaksSocks(Ground& /*ground*/) {
  Expectations expected;
  for (const std::string scheme : {"socks4", "socks5"}) {
    LoopbackListener proxy;
    const std::wstring url = kiv::tool::toWide(scheme) + L"://" + proxy.address();
    OwnSession session(url, std::nullopt);
    const kiv::PendingResolution request = session->start(kTarget, 1);
    auto connection = proxy.accept(kPatience / 1ms);
    const bool served = connection && servesSocks(std::move(*connection), scheme);
    const auto completed = nextOf<kiv::CompletedEvent>(*session);
    expected.that(served && completed && isProxy(completed->decision, url),
                  "A " + scheme + " proxy was not the answer");
  }
  return expected.finding("The session asked a SOCKS 4 and a SOCKS 5 proxy for the target; each is the answer.");
}

Finding obeysBypassList(Ground& ground) {
  SessionOptions options = ownCandidatesOnly();
  options.bypass_list = L"target.*";
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt, options);
  Expectations expected;
  expected.that(session->resolve(kTarget).reason() == KIV_REASON_BYPASSED, "The list was not obeyed");
  expected.that(session->resolve(kOther).is_proxy(), "A target that the list does not name was bypassed");
  expected.that(ground.asked(Server::OpenProxy).size() == 1, "What is bypassed was tested");
  return expected.finding("What the list names is direct and not tested; all else is tested.");
}

Finding keepsDecisions(Ground& ground) {
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt);
  const Decision first = session->resolve(L"http://target.test/one");
  const std::optional<Decision> second = session->lookup(L"http://target.test/two");
  Expectations expected;
  expected.that(second && second->handle() == first.handle(), "The decision was not kept for its origin");
  expected.that(session->counter(SessionCounter::Resolutions) == 1, "There was more than one resolution");
  expected.that(ground.asked(Server::OpenProxy).size() == 1, "The proxy was asked more than once");
  return expected.finding("The second URL of the origin got the kept decision, without a request.");
}

Finding sharesResolutions(Ground& ground) {
  constexpr std::uint64_t kCallers = 100;
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt);
  for (std::uint64_t tag = 0; tag < kCallers; ++tag) session->start(kTarget, tag);
  std::uint64_t answered = 0;
  std::uint64_t tags = 0;
  for (; answered < kCallers; ++answered) {
    const auto completed = nextOf<kiv::CompletedEvent>(*session);
    if (!completed || !completed->decision.is_proxy()) break;
    tags += completed->tag;
  }
  Expectations expected;
  expected.that(answered == kCallers && tags == kCallers * (kCallers - 1) / 2, "Not every call got its answer");
  expected.that(session->counter(SessionCounter::Resolutions) == 1, "There was more than one resolution");
  return expected.finding("100 calls for one origin got their answers from one resolution.");
}

Finding believesReports(Ground& ground) {
  LoopbackListener second;
  SessionOptions options = ownCandidatesOnly();
  options.test = kiv::SessionTest::Connect;
  OwnSession session(urlOf(ground, Server::OpenProxy), L"http://" + second.address(), options);
  const Decision first = session->resolve(kTarget);
  session->report_failure(first, kiv::DecisionFailure::ProxyUnreachable);
  Expectations expected;
  expected.that(isProxy(first, urlOf(ground, Server::OpenProxy)), "The first proxy was not the answer");
  expected.that(isProxy(session->resolve(kTarget), L"http://" + second.address()),
                "A proxy that was reported unreachable is still the answer");
  return expected.finding("A proxy that was reported unreachable is no longer the answer; the next one is.");
}

// ---- Waiting

Finding keepsDeadlines(Ground& ground) {
  OwnSession session(urlOf(ground, Server::SilentProxy), std::nullopt);
  const auto request = session->start(kTarget, 1, 2s);
  const bool wasAsked = ground.waitUntilAsked(Server::SilentProxy, 1);
  const auto completed = nextOf<kiv::CompletedEvent>(*session);
  Expectations expected;
  expected.that(wasAsked, "The proxy was not asked");
  expected.that(completed && completed->status == KIV_STATUS_TIMED_OUT, "The call did not time out");
  return expected.finding("The call timed out, while its proxy still had not answered.");
}

Finding cancels(Ground& ground) {
  OwnSession session(urlOf(ground, Server::SilentProxy), std::nullopt);
  kiv::PendingResolution request = session->start(kTarget, 1, kiv::no_timeout);
  const bool wasAsked = ground.waitUntilAsked(Server::SilentProxy, 1);
  request.cancel();
  const auto completed = nextOf<kiv::CompletedEvent>(*session);
  Expectations expected;
  expected.that(wasAsked, "The proxy was not asked");
  expected.that(completed && completed->status == KIV_STATUS_CANCELLED, "The call was not cancelled");
  return expected.finding("The call ended as cancelled, while its proxy still had not answered.");
}

Finding endsWhenClosed(Ground& ground) {
  OwnSession session(urlOf(ground, Server::SilentProxy), std::nullopt);
  const auto request = session->start(kTarget, 1, kiv::no_timeout);
  const bool wasAsked = ground.waitUntilAsked(Server::SilentProxy, 1);
  session->close();
  const auto completed = nextOf<kiv::CompletedEvent>(*session);
  const auto last = session->next(kPatience);
  Expectations expected;
  expected.that(wasAsked, "The proxy was not asked");
  expected.that(completed && completed->status == KIV_STATUS_CLOSED, "The call did not end as closed");
  expected.that(last && std::holds_alternative<kiv::ClosedEvent>(*last), "The last event did not tell of the close");
  return expected.finding("The call ended as closed, and the last event tells of it.");
}

// The first candidate's queue of connections is full. Windows tries again for about two seconds before it reports that.
Finding connectsInParallel(Ground& /*ground*/) {
  const FullBacklog first;
  LoopbackListener second;
  SessionOptions options = ownCandidatesOnly();
  options.connect_timeout = kPatience;
  options.test = kiv::SessionTest::Connect;
  OwnSession session(L"http://" + first.address(), L"http://" + second.address(), options);
  kiv::PendingResolution request = session->start(kTarget, 1, kiv::no_timeout);
  const bool connected = second.accept(kPatience / 1ms).has_value();
  const bool firstIsOpen = !request.wait(0ms).has_value();
  request.cancel();
  Expectations expected;
  expected.that(connected, "The second candidate was not connected to");
  expected.that(firstIsOpen, "The first candidate was waited for");
  return expected.finding("The second candidate was connected to while the first had neither accepted nor refused.");
}

// ---- Notifications

Finding wakes(Ground& ground) {
  const kiv::support::UniqueEvent woken(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  SessionOptions options = ownCandidatesOnly();
  options.wake = [&woken] { SetEvent(woken.get()); };
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt, options);
  const auto isSet = [&](std::uint32_t milliseconds) {
    return WaitForSingleObject(woken.get(), milliseconds) == WAIT_OBJECT_0;
  };
  Expectations expected;
  expected.that(!isSet(0), "The application was woken without an event");
  const auto request = session->start(kTarget, 1);
  expected.that(isSet(kPatience / 1ms), "The application was not woken");
  const auto event = session->next(0ms);
  expected.that(event && std::holds_alternative<kiv::CompletedEvent>(*event), "There was no event to be read");
  session->close();
  return expected.finding("The application was woken when the queue of events received one.");
}

Finding tellsOfNoChange(Ground& ground) {
  OwnSession session(urlOf(ground, Server::OpenProxy), std::nullopt);
  for (int i = 0; i < 10; ++i) {
    session->resolve(kTarget);
    session->forget();
  }
  if (session->counter(SessionCounter::Changes) == 0) {
    return {Verdict::Pass, "Nothing changed in 10 resolutions, and nothing was told."};
  }
  return {Verdict::Fail, "The session told of a change. Did the settings or the network change meanwhile?"};
}

// ---- Credentials

Finding asksForCredentials(Ground& ground) {
  OwnSession session(urlOf(ground, Server::BasicProxy), std::nullopt);
  session->next(0ms);
  const auto request = session->start(kTarget, 1);
  auto asked = nextOf<kiv::ChallengeEvent>(*session);
  if (!asked) return {Verdict::Fail, "The application was not asked."};
  const kiv::Challenge& challenge = asked->challenge;
  Expectations expected;
  expected.that(challenge.scheme() == KIV_SCHEME_BASIC && challenge.realm() == L"ground" && challenge.attempt() == 1,
                "The question was not the proxy's");
  expected.that(asked->challenge.answer(kUser, kPassword), "The answer came too late");
  const auto completed = nextOf<kiv::CompletedEvent>(*session);
  expected.that(completed && isProxy(completed->decision, urlOf(ground, Server::BasicProxy)) &&
                    completed->decision.auth_scheme() == KIV_SCHEME_BASIC,
                "With the right password, the proxy was not the answer");
  expected.that(session->resolve(kOther).is_proxy() && session->counter(SessionCounter::Challenges) == 1,
                "The application was asked again");
  return expected.finding("The application was asked once; the answer served two origins.");
}

std::size_t sentTo(const Ground& ground, Server server) {
  std::size_t times = 0;
  for (const Asked& asked : ground.asked(server)) times += asked.scheme.empty() ? 0U : 1U;
  return times;
}

Finding sendsRefusedPasswordOnce(Ground& ground) {
  OwnSession session(urlOf(ground, Server::BasicProxy), std::nullopt);
  session->next(0ms);
  const auto request = session->start(kTarget, 1);
  auto asked = nextOf<kiv::ChallengeEvent>(*session);
  if (!asked) return {Verdict::Fail, "The application was not asked."};
  asked->challenge.answer(kUser, L"wrong");
  asked = nextOf<kiv::ChallengeEvent>(*session);
  Expectations expected;
  expected.that(asked && asked->challenge.attempt() == 2, "The application was not asked a second time");
  if (asked) asked->challenge.decline();
  const auto completed = nextOf<kiv::CompletedEvent>(*session);
  expected.that(completed && completed->decision.reason() == KIV_REASON_CREDENTIALS_WANTED,
                "The result was not that credentials are wanted");
  expected.that(session->resolve(kOther).is_none() && sentTo(ground, Server::BasicProxy) == 1,
                "The refused password was not sent exactly once");
  return expected.finding("The refused password was sent once; after a second question that was declined, no more.");
}

// Another client's connection to a proxy, which begins with CONNECT.
class Tunnel {
 public:
  explicit Tunnel(std::uint16_t proxy) : connection_(LoopbackConnection::to(proxy)) {}

  // The head of the answer.
  std::string request(std::wstring_view authorization) {
    std::string text = "CONNECT target.test:80 HTTP/1.1\r\nHost: target.test:80\r\n";
    if (!authorization.empty()) text += "Proxy-Authorization: " + toUtf8(authorization) + "\r\n";
    connection_.write(text + "\r\n");
    return connection_.readHead();
  }

 private:
  LoopbackConnection connection_;
};

bool isOk(std::string_view head) { return head.starts_with("HTTP/1.1 200"); }

// The values of a 407's challenges, one in each line.
std::wstring challengesIn(std::string_view head) {
  constexpr std::string_view kName = "Proxy-Authenticate: ";
  std::string values;
  for (std::size_t at = head.find(kName); at != std::string_view::npos; at = head.find(kName, at)) {
    at += kName.size();
    values.append(head.substr(at, head.find("\r\n", at) - at)).append("\n");
  }
  return kiv::tool::toWide(values);
}

// What became of authenticating one connection.
struct Authenticated {
  kiv::AuthStep last = kiv::AuthStep::NotYet;
  bool opened = false;
  int headers = 0;
};

Authenticated authenticate(Session& session, const Decision& decision, std::uint16_t port) {
  Authenticated result;
  kiv::ProxyAuth auth = session.authenticate(decision);
  Tunnel tunnel(port);
  std::string head = tunnel.request({});
  for (int step = 0; step < 5 && !head.empty() && !isOk(head); ++step) {
    result.last = auth.next(challengesIn(head));
    if (auth.header().empty()) break;
    ++result.headers;
    head = tunnel.request(auth.header());
  }
  result.opened = isOk(head);
  return result;
}

Authenticated authenticateAt(Ground& ground, Server server, const wchar_t* password) {
  SessionOptions options = ownCandidatesOnly();
  options.test = kiv::SessionTest::Connect;
  OwnSession session(urlOf(ground, server), std::nullopt, options);
  session->set_preferred_proxy(urlOf(ground, server), kUser, password);
  return authenticate(*session, session->resolve(kTarget), ground.port(server));
}

Finding authenticatesWithBasic(Ground& ground) {
  const Authenticated right = authenticateAt(ground, Server::BasicProxy, kPassword);
  const Authenticated wrong = authenticateAt(ground, Server::BasicProxy, L"wrong");
  Expectations expected;
  expected.that(right.opened && right.headers == 1, "The right password did not open the tunnel");
  expected.that(!wrong.opened && wrong.last == kiv::AuthStep::Rejected && wrong.headers == 1,
                "The wrong password was not sent once and rejected");
  return expected.finding("The right password opened the tunnel; the wrong one was sent once and rejected.");
}

Finding authenticatesWithNtlm(Ground& ground) {
  if (const std::string missing = ground.missing(Server::NtlmProxy); !missing.empty()) {
    return {Verdict::Skipped, "No NTLM proxy: " + missing + "."};
  }
  const Authenticated wrong = authenticateAt(ground, Server::NtlmProxy, L"wrong");
  Expectations expected;
  expected.that(wrong.headers == 2, "The handshake did not take two messages");
  expected.that(!wrong.opened && wrong.last == kiv::AuthStep::Rejected,
                "An account that does not exist was not rejected");
  return expected.finding("The handshake took two messages; an account that does not exist was rejected.");
}

constexpr Check kChecks[] = {
    {"a-session-reaches-through-a-proxy", "Does a session reach the target through a proxy?", reachesThroughProxy},
    {"a-session-passes-over-bad-proxies", "Does a session pass over proxies that do not work?", passesOverBadProxies},
    {"a-session-speaks-socks", "Does a session speak SOCKS?", speaksSocks},
    {"a-session-obeys-the-bypass-list", "Does a session obey its bypass list?", obeysBypassList},
    {"a-session-keeps-decisions", "Does a session keep decisions?", keepsDecisions},
    {"a-session-shares-resolutions", "Do calls for one origin share a resolution?", sharesResolutions},
    {"a-session-believes-reports", "Does a session believe that a proxy cannot be reached?", believesReports},
    {"a-session-connects-in-parallel", "Are candidates connected to in parallel?", connectsInParallel},
    {"a-deadline-of-a-session", "Does a call end at its deadline?", keepsDeadlines},
    {"a-cancel-of-a-session", "Does a cancelled call end?", cancels},
    {"a-close-of-a-session", "Does closing a session end its calls?", endsWhenClosed},
    {"a-session-wakes-the-application", "Is the application woken for an event?", wakes},
    {"a-session-tells-of-no-change", "Does a session tell of no change while there is none?", tellsOfNoChange},
    {"a-session-asks-for-credentials", "Is the application asked for a proxy's password?", asksForCredentials},
    {"a-session-sends-a-refused-password-once", "Is a password that was refused sent no more?",
     sendsRefusedPasswordOnce},
    {"other-clients-authenticate-with-basic", "Can another client authenticate with Basic?", authenticatesWithBasic},
    {"other-clients-authenticate-with-ntlm", "Can another client authenticate with NTLM?", authenticatesWithNtlm},
};

}  // namespace

Group sessionChecks() { return {"Sessions", kChecks}; }

}  // namespace selfcheck
