// Calls every function of kiv-session.dll once, with something whose answer is known.
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "checks/export_checks.h"
#include "checks/exported_functions.h"
#include "ground/ground.h"
#include "kiv/session.hpp"
#include "support/owners.h"

namespace selfcheck {
namespace {

using kiv::Challenge;
using kiv::Decision;
using kiv::PendingResolution;
using kiv::ProxyAuth;
using kiv::Session;
using kiv::SessionOptions;
using kiv::support::UniqueEvent;

constexpr const wchar_t* kProxy = L"gate.test:8080";
constexpr const wchar_t* kQuestion = L"Basic realm=\"gate\"";
constexpr std::uint64_t kTag = 0x123456789ABCDEF0;
constexpr std::uint32_t kPatience = 20000;

struct ReleaseEvent {
  void operator()(KivEvent* event) const noexcept { KivEvent_Release(event); }
};
using Event = std::unique_ptr<KivEvent, ReleaseEvent>;

// Sessions that test nothing, so that their decisions need no network: the preferred proxy is the answer.
SessionOptions testingNothing() {
  SessionOptions options;
  options.test = kiv::SessionTest::None;
  options.bypass_list = L"bypassed.test";
  options.discovery_timeout = std::chrono::milliseconds(500);
  return options;
}
Session sessionWithCredentials() {
  Session session(kAgent, testingNothing());
  session.set_preferred_proxy(kProxy, L"user", L"password");
  return session;
}
Session sessionWithout() {
  Session session(kAgent, testingNothing());
  session.set_preferred_proxy(kProxy);
  return session;
}

Decision decisionOf(Session& session) {
  KivDecision* decision = nullptr;
  kiv::session_detail::check(KivSession_Resolve(session.handle(), kTarget, kPatience, &decision));
  return Decision(decision);
}

// The next event of a kind; null if none comes.
Event nextOf(KivSession* session, std::uint32_t kind) {
  for (;;) {
    KivEvent* raw = nullptr;
    const KivStatus status = KivSession_Next(session, kPatience, &raw);
    Event event(raw);
    if (!event || KivEvent_Kind(event.get()) == kind) return event;
    if (status != KIV_STATUS_OK) return nullptr;
  }
}

// A proxy's question for credentials, as another client's 407 makes the session ask it.
class Question {
 public:
  Question() : session_(sessionWithout()), decision_(decisionOf(session_)), auth_(session_.authenticate(decision_)) {
    // Whoever has looked for events once is asked.
    session_.next(std::chrono::milliseconds(0));
    next();
    event_ = nextOf(session_.handle(), KIV_EVENT_CHALLENGE);
    challenge_ = Challenge(KivEvent_Challenge(event_.get()));
  }

  KivStatus next() {
    const wchar_t* header = nullptr;
    return KivAuth_Next(auth_.handle(), kQuestion, &header);
  }
  KivEvent* event() const { return event_.get(); }
  KivChallenge* challenge() const { return challenge_.handle(); }

 private:
  Session session_;
  Decision decision_;
  ProxyAuth auth_;
  Event event_;
  Challenge challenge_;
};

// What the calls share.
struct Scene {
  Ground& ground;
  Session session = sessionWithCredentials();
  Decision decision = decisionOf(session);
  Question question{};
};
using Function = ExportedFunction<Scene>;

bool is(const wchar_t* text, std::wstring_view expected) { return text && text == expected; }
bool isGate(const Decision& decision) { return decision.proxy_url() == L"http://gate.test:8080"; }

void compareCredentials(void* context, const wchar_t* user, const wchar_t* password) {
  *static_cast<bool*>(context) = is(user, L"user") && is(password, L"password");
}
KivStatus credentialsOf(const Decision& decision, bool& right) {
  return KivDecision_Credentials(decision.handle(), &right, compareCredentials);
}

UniqueEvent newEvent() { return UniqueEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)); }
bool isSet(const UniqueEvent& event) { return WaitForSingleObject(event.get(), kPatience) == WAIT_OBJECT_0; }

// A resolution that has to be ended: its proxy never answers.
struct Hanging {
  Session session;
  PendingResolution request;

  explicit Hanging(const Ground& ground) : session(kAgent, options()) {
    session.set_preferred_proxy(L"http://" + ground.address(Server::SilentProxy));
    request = session.start(kTarget, kTag, kiv::no_timeout);
  }

 private:
  static SessionOptions options() {
    SessionOptions options = testingNothing();
    options.test = kiv::SessionTest::Reached;
    options.direct = kiv::DirectPolicy::Never;
    options.filter = [](std::wstring_view proxy) { return proxy.starts_with(L"http://127.0.0.1:"); };
    return options;
  }
};

bool refusesEveryProxy(KivSession* session) {
  const auto refuse = [](void*, const wchar_t*) { return 0; };
  return KivSession_SetFilter(session, refuse, nullptr) == KIV_STATUS_OK &&
         KivSession_SetNumber(session, KIV_OPTION_DIRECT, KIV_DIRECT_NEVER) == KIV_STATUS_OK;
}

constexpr Function kFunctions[] = {
    {"KivAuth_Create",
     [](Scene& scene) {
       KivAuth* auth = nullptr;
       const KivStatus status = KivAuth_Create(scene.session.handle(), scene.decision.handle(), &auth);
       return status == KIV_STATUS_OK && ProxyAuth(auth).handle();
     }},
    {"KivAuth_Next",
     [](Scene& scene) {
       ProxyAuth auth = scene.session.authenticate(scene.decision);
       const wchar_t* header = nullptr;
       return KivAuth_Next(auth.handle(), kQuestion, &header) == KIV_STATUS_DONE &&
              is(header, L"Basic dXNlcjpwYXNzd29yZA==");
     }},
    {"KivAuth_Release",
     [](Scene& scene) {
       KivAuth* auth = nullptr;
       const KivStatus status = KivAuth_Create(scene.session.handle(), scene.decision.handle(), &auth);
       return KivAuth_Release(auth), status == KIV_STATUS_OK;
     }},

    {"KivChallenge_Answer",
     [](Scene&) {
       Question question;
       return KivChallenge_Answer(question.challenge(), L"user", L"password") == KIV_STATUS_OK &&
              question.next() == KIV_STATUS_DONE;
     }},
    {"KivChallenge_Attempt", [](Scene& scene) { return KivChallenge_Attempt(scene.question.challenge()) == 1; }},
    {"KivChallenge_Decline",
     [](Scene&) {
       const Question question;
       return KivChallenge_Decline(question.challenge()) == KIV_STATUS_OK &&
              KivChallenge_Answer(question.challenge(), L"user", L"password") == KIV_STATUS_TOO_LATE;
     }},
    {"KivChallenge_IsWithdrawn",
     [](Scene& scene) { return KivChallenge_IsWithdrawn(scene.question.challenge()) == 0; }},
    {"KivChallenge_Proxy",
     [](Scene& scene) { return is(KivChallenge_Proxy(scene.question.challenge()), L"http://gate.test:8080"); }},
    {"KivChallenge_Realm", [](Scene& scene) { return is(KivChallenge_Realm(scene.question.challenge()), L"gate"); }},
    {"KivChallenge_Release",
     [](Scene&) {
       const Question question;
       KivChallenge_Release(KivEvent_Challenge(question.event()));
       return KivChallenge_Answer(question.challenge(), L"user", L"password") == KIV_STATUS_OK;
     }},
    {"KivChallenge_Scheme",
     [](Scene& scene) { return KivChallenge_Scheme(scene.question.challenge()) == KIV_SCHEME_BASIC; }},

    {"KivDecision_Age",
     [](Scene& scene) {
       const std::uint64_t age = KivDecision_Age(scene.decision.handle());
       return age <= KivDecision_Age(scene.decision.handle());
     }},
    {"KivDecision_AuthScheme", [](Scene& scene) { return KivDecision_AuthScheme(scene.decision.handle()) == 0; }},
    {"KivDecision_Credentials",
     [](Scene& scene) {
       bool right = false;
       return credentialsOf(scene.decision, right) == KIV_STATUS_OK && right;
     }},
    {"KivDecision_Host", [](Scene& scene) { return is(KivDecision_Host(scene.decision.handle()), L"gate.test"); }},
    {"KivDecision_Kind", [](Scene& scene) { return KivDecision_Kind(scene.decision.handle()) == KIV_KIND_PROXY; }},
    {"KivDecision_Port", [](Scene& scene) { return KivDecision_Port(scene.decision.handle()) == 8080; }},
    {"KivDecision_ProxyUrl",
     [](Scene& scene) { return is(KivDecision_ProxyUrl(scene.decision.handle()), L"http://gate.test:8080"); }},
    {"KivDecision_Reason",
     [](Scene& scene) { return KivDecision_Reason(scene.decision.handle()) == KIV_REASON_NOT_TESTED; }},
    {"KivDecision_Release",
     [](Scene& scene) {
       KivDecision_Release(KivDecision_Retain(scene.decision.handle()));
       return isGate(scene.decision);
     }},
    {"KivDecision_Retain",
     [](Scene& scene) {
       return Decision(KivDecision_Retain(scene.decision.handle())).handle() == scene.decision.handle();
     }},
    {"KivDecision_Scheme", [](Scene& scene) { return is(KivDecision_Scheme(scene.decision.handle()), L"http"); }},

    {"KivEvent_Challenge",
     [](Scene&) { return is(KivChallenge_Proxy(Question().challenge()), L"http://gate.test:8080"); }},
    {"KivEvent_Decision",
     [](Scene& scene) {
       const PendingResolution request = scene.session.start(kTarget, kTag);
       return isGate(Decision(KivEvent_Decision(nextOf(scene.session.handle(), KIV_EVENT_COMPLETED).get())));
     }},
    {"KivEvent_Kind", [](Scene& scene) { return KivEvent_Kind(scene.question.event()) == KIV_EVENT_CHALLENGE; }},
    {"KivEvent_Release",
     [](Scene& scene) {
       const PendingResolution request = scene.session.start(kTarget, kTag);
       KivEvent_Release(nextOf(scene.session.handle(), KIV_EVENT_COMPLETED).release());
       return scene.session.counter(kiv::SessionCounter::Waiting) == 0;
     }},
    {"KivEvent_Status",
     [](Scene& scene) {
       const Hanging hanging(scene.ground);
       KivRequest_Cancel(hanging.request.handle());
       return KivEvent_Status(nextOf(hanging.session.handle(), KIV_EVENT_COMPLETED).get()) == KIV_STATUS_CANCELLED;
     }},
    {"KivEvent_Tag",
     [](Scene& scene) {
       const PendingResolution request = scene.session.start(kTarget, kTag);
       return KivEvent_Tag(nextOf(scene.session.handle(), KIV_EVENT_COMPLETED).get()) == kTag;
     }},
    {"KivEvent_Text",
     [](Scene&) {
       Session session = sessionWithCredentials();
       session.set_log_level(kiv::SessionLogLevel::Info);
       const Decision decision = decisionOf(session);
       return std::wstring_view(KivEvent_Text(nextOf(session.handle(), KIV_EVENT_LOG).get())) != L"";
     }},

    {"KivRequest_Cancel",
     [](Scene& scene) {
       const Hanging hanging(scene.ground);
       KivRequest_Cancel(hanging.request.handle());
       KivDecision* decision = nullptr;
       return KivRequest_Wait(hanging.request.handle(), kPatience, &decision) == KIV_STATUS_CANCELLED && !decision;
     }},
    {"KivRequest_Release",
     [](Scene& scene) {
       KivRequest* request = nullptr;
       const KivStatus status = KivSession_Start(scene.session.handle(), kTarget, 0, kTag, nullptr, &request);
       KivRequest_Release(request);
       return status == KIV_STATUS_OK && nextOf(scene.session.handle(), KIV_EVENT_COMPLETED);
     }},
    {"KivRequest_Wait",
     [](Scene& scene) {
       const PendingResolution request = scene.session.start(kTarget, kTag);
       KivDecision* decision = nullptr;
       const KivStatus status = KivRequest_Wait(request.handle(), kPatience, &decision);
       return status == KIV_STATUS_OK && isGate(Decision(decision)) &&
              nextOf(scene.session.handle(), KIV_EVENT_COMPLETED);
     }},

    {"KivSession_Close",
     [](Scene&) {
       Session session = sessionWithCredentials();
       KivSession_Close(session.handle());
       KivDecision* decision = nullptr;
       return KivSession_Resolve(session.handle(), kTarget, 0, &decision) == KIV_STATUS_CLOSED;
     }},
    {"KivSession_Create",
     [](Scene&) {
       KivSession* session = nullptr;
       const KivStatus refused = KivSession_Create(L"two\r\nlines", &session);
       return refused == KIV_STATUS_BAD_ARGUMENT && !session && sessionWithout().handle();
     }},
    {"KivSession_Destruct",
     [](Scene&) {
       KivSession* session = nullptr;
       const KivStatus status = KivSession_Create(kAgent, &session);
       KivSession_Destruct(session);
       return status == KIV_STATUS_OK;
     }},
    {"KivSession_Forget",
     [](Scene&) {
       Session session = sessionWithCredentials();
       const Decision decision = decisionOf(session);
       const bool kept = session.counter(kiv::SessionCounter::KeptOrigins) == 1;
       KivSession_Forget(session.handle());
       return kept && session.counter(kiv::SessionCounter::KeptOrigins) == 0;
     }},
    {"KivSession_ForgetCredentials",
     [](Scene&) {
       Session session = sessionWithCredentials();
       const Decision decision = decisionOf(session);
       session.report_failure(decision, kiv::DecisionFailure::ProxyCredentials);
       bool right = false;
       const KivStatus refused = credentialsOf(decision, right);
       KivSession_ForgetCredentials(session.handle());
       return refused == KIV_STATUS_NOT_YET && credentialsOf(decision, right) == KIV_STATUS_OK && right;
     }},
    {"KivSession_GetCounter",
     [](Scene&) {
       Session session = sessionWithCredentials();
       const std::uint64_t before = KivSession_GetCounter(session.handle(), KIV_COUNTER_RESOLUTIONS);
       const Decision decision = decisionOf(session);
       return before == 0 && KivSession_GetCounter(session.handle(), KIV_COUNTER_RESOLUTIONS) == 1;
     }},
    {"KivSession_Lookup",
     [](Scene& scene) {
       KivDecision* decision = nullptr;
       const KivStatus status = KivSession_Lookup(scene.session.handle(), kTarget, &decision);
       return status == KIV_STATUS_OK && isGate(Decision(decision));
     }},
    {"KivSession_Next",
     [](Scene&) {
       Session session = sessionWithCredentials();
       KivEvent* event = nullptr;
       return KivSession_Next(session.handle(), 0, &event) == KIV_STATUS_NOT_YET && !event;
     }},
    {"KivSession_ReportFailure",
     [](Scene&) {
       Session session = sessionWithCredentials();
       const Decision decision = decisionOf(session);
       return KivSession_ReportFailure(session.handle(), decision.handle(), KIV_FAILURE_TARGET) == KIV_STATUS_OK &&
              session.counter(kiv::SessionCounter::KeptOrigins) == 0;
     }},
    {"KivSession_Resolve",
     [](Scene& scene) {
       KivDecision* decision = nullptr;
       const KivStatus status = KivSession_Resolve(scene.session.handle(), kTarget, 0, &decision);
       return status == KIV_STATUS_OK && isGate(Decision(decision));
     }},
    // What it is told can only be seen when settings change.
    {"KivSession_SetChanged",
     [](Scene& scene) {
       const auto ignore = [](void*) {};
       return KivSession_SetChanged(sessionWithout().handle(), ignore, nullptr) == KIV_STATUS_OK &&
              KivSession_SetChanged(scene.session.handle(), ignore, nullptr) == KIV_STATUS_TOO_LATE;
     }},
    {"KivSession_SetCredentialCallback",
     [](Scene&) {
       const UniqueEvent asked = newEvent();
       Session session = sessionWithout();
       const auto receive = [](void* context, KivChallenge* challenge) {
         KivChallenge_Release(challenge);
         SetEvent(context);
       };
       const KivStatus set = KivSession_SetCredentialCallback(session.handle(), receive, asked.get());
       ProxyAuth auth = session.authenticate(decisionOf(session));
       auth.next(kQuestion);
       return set == KIV_STATUS_OK && isSet(asked);
     }},
    {"KivSession_SetFilter",
     [](Scene&) {
       Session session = sessionWithCredentials();
       return refusesEveryProxy(session.handle()) && decisionOf(session).is_none();
     }},
    {"KivSession_SetLog",
     [](Scene&) {
       const UniqueEvent logged = newEvent();
       Session session = sessionWithCredentials();
       session.set_log_level(kiv::SessionLogLevel::Info);
       const auto receive = [](void* context, std::uint32_t, const wchar_t*) { SetEvent(context); };
       const KivStatus set = KivSession_SetLog(session.handle(), receive, logged.get());
       const Decision decision = decisionOf(session);
       return set == KIV_STATUS_OK && isSet(logged);
     }},
    {"KivSession_SetNumber",
     [](Scene&) {
       Session session = sessionWithCredentials();
       return KivSession_SetNumber(session.handle(), KIV_OPTION_TEST, 3) == KIV_STATUS_BAD_ARGUMENT &&
              KivSession_SetNumber(session.handle(), KIV_OPTION_TEST, KIV_TEST_NONE) == KIV_STATUS_OK &&
              decisionOf(session).reason() == KIV_REASON_NOT_TESTED;
     }},
    {"KivSession_SetProxy",
     [](Scene&) {
       Session session(kAgent, testingNothing());
       const KivStatus set =
           KivSession_SetProxy(session.handle(), KIV_PROXY_PREFERRED, L"socks5://other.test", nullptr, nullptr);
       return set == KIV_STATUS_OK && decisionOf(session).proxy_url() == L"socks5://other.test:1080";
     }},
    {"KivSession_SetText",
     [](Scene&) {
       Session session = sessionWithCredentials();
       return KivSession_SetText(session.handle(), KIV_OPTION_BYPASS_LIST, L"*.test") == KIV_STATUS_OK &&
              decisionOf(session).reason() == KIV_REASON_BYPASSED;
     }},
    {"KivSession_SetWake",
     [](Scene&) {
       const UniqueEvent woken = newEvent();
       Session session = sessionWithCredentials();
       const auto wake = [](void* context) { SetEvent(context); };
       const KivStatus set = KivSession_SetWake(session.handle(), wake, woken.get());
       const PendingResolution request = session.start(kTarget, kTag);
       const bool seen = isSet(woken);
       session.close();
       return set == KIV_STATUS_OK && seen;
     }},
    {"KivSession_Start",
     [](Scene& scene) {
       KivRequest* request = nullptr;
       const KivStatus status = KivSession_Start(scene.session.handle(), kTarget, 0, kTag, nullptr, &request);
       return status == KIV_STATUS_OK && PendingResolution(request).handle() &&
              nextOf(scene.session.handle(), KIV_EVENT_COMPLETED);
     }},
    {"KivSession_Version",
     [](Scene&) {
       return KivSession_Version() == KIV_VERSION_MAJOR * 65536U + KIV_VERSION_MINOR * 256U + KIV_VERSION_PATCH;
     }},
    {"KivStatus_Text",
     [](Scene&) { return std::wstring_view(KivStatus_Text(KIV_STATUS_OK)) != KivStatus_Text(KIV_STATUS_TIMED_OUT); }},
};

}  // namespace

Finding callSessionExports(Ground& ground) {
  Scene scene{ground};
  return checkExports<Scene>(L"kiv-session.dll", kFunctions, scene);
}

}  // namespace selfcheck
