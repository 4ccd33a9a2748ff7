// Whole sessions: what becomes of a proxy's 407.
#include "unit/session/support/session_test.h"

namespace kiv::test {
namespace {

class SessionCredentialsTest : public SessionTest {
 protected:
  SessionCredentialsTest() {
    useProxies(L"proxy:1");
    windows.http.decide = [this](const RequestRecord& request) { return wantsPassword(request, password); };
  }

  UniqueChallenge nextChallenge(std::uint32_t timeout = 60'000) {
    const Told told = next(session, timeout);
    EXPECT_EQ(told.kind(), KIV_EVENT_CHALLENGE);
    return told.challenge();
  }
  static KivStatus answer(const UniqueChallenge& challenge, const wchar_t* password) {
    return KivChallenge_Answer(challenge.get(), L"ann", password);
  }
  std::size_t timesSent(const std::wstring& secret) const {
    std::size_t times = 0;
    for (const Credentials& credentials : windows.credentials()) times += credentials.password == secret;
    return times;
  }

  std::wstring password = L"right";
};

TEST_F(SessionCredentialsTest, AsksAndGoesOnWithTheAnswer) {
  next(session);  // somebody listens
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  const UniqueChallenge challenge = nextChallenge();
  EXPECT_STREQ(KivChallenge_Proxy(challenge.get()), L"http://proxy:1");
  EXPECT_STREQ(KivChallenge_Realm(challenge.get()), L"office");
  EXPECT_EQ(KivChallenge_Scheme(challenge.get()), KIV_SCHEME_BASIC);
  EXPECT_EQ(KivChallenge_Attempt(challenge.get()), 1U);
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_OK);
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_TOO_LATE);
  const Result result = started.wait();
  EXPECT_EQ(result.route(), L"http://proxy:1");
  EXPECT_EQ(KivDecision_AuthScheme(result.decision.get()), KIV_SCHEME_BASIC);

  std::pair<std::wstring, std::wstring> received;
  EXPECT_EQ(KivDecision_Credentials(result.decision.get(), &received,
                                    [](void* context, const wchar_t* user, const wchar_t* secret) {
                                      *static_cast<std::pair<std::wstring, std::wstring>*>(context) = {user, secret};
                                    }),
            KIV_STATUS_OK);
  EXPECT_EQ(received.first, L"ann");
  EXPECT_EQ(received.second, L"right");
}

TEST_F(SessionCredentialsTest, AsksNobodyIfNobodyListens) {
  const Result result = resolve(session, L"http://a.test/");
  EXPECT_EQ(result.route(), L"none");
  EXPECT_EQ(result.reason(), KIV_REASON_CREDENTIALS_WANTED);
  time.advance(3'600'000ms);
  EXPECT_EQ(lookup(session, L"http://a.test/").route(), L"none") << "kept until credentials change";
  KivSession_ForgetCredentials(session.get());
  EXPECT_EQ(lookup(session, L"http://a.test/").status, KIV_STATUS_NOT_YET);
}

TEST_F(SessionCredentialsTest, LosesHandlesThatAreReleasedWhileTheProcessEnds) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  Told told = next(session, 60'000);
  const UniqueChallenge challenge = told.challenge();
  windows.change([this] { windows.processEnds = true; });
  KivChallenge_Release(challenge.get());
  KivEvent_Release(told.event.get());
  KivRequest_Release(started.request.get());
  windows.change([this] { windows.processEnds = false; });
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_OK) << "it was not declined";
  EXPECT_EQ(started.wait().route(), L"http://proxy:1");
}

TEST_F(SessionCredentialsTest, TriesTheGivenCredentialsFirst) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://proxy:1");
  EXPECT_EQ(timesSent(L"right"), 1U);
}

TEST_F(SessionCredentialsTest, SendsProvenCredentialsWithTheFirstRequestOfOtherOrigins) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  resolve(session, L"http://a.test/");
  const std::size_t sent = sentThrough(L"proxy:1");
  resolve(session, L"http://b.test/");
  EXPECT_EQ(sentThrough(L"proxy:1"), sent + 1);
}

TEST_F(SessionCredentialsTest, AsksAtMostTwiceAndSendsNoPasswordTwice) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  EXPECT_EQ(answer(nextChallenge(), L"wrong"), KIV_STATUS_OK);
  const UniqueChallenge second = nextChallenge();
  EXPECT_EQ(KivChallenge_Attempt(second.get()), 2U);
  EXPECT_EQ(answer(second, L"wrong too"), KIV_STATUS_OK);
  const Result result = started.wait();
  EXPECT_EQ(result.reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(timesSent(L"wrong"), 1U);
  EXPECT_EQ(timesSent(L"wrong too"), 1U);
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 2U);
}

TEST_F(SessionCredentialsTest, SendsNoPasswordOnceNobodyWaitsAnyMore) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  answer(nextChallenge(), L"right");
  KivRequest_Cancel(started.request.get());
  time.settle();
  EXPECT_EQ(timesSent(L"right"), 0U);
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://proxy:1") << "the answer serves the next call";
}

TEST_F(SessionCredentialsTest, DoesNotSendARefusedAnswerAgain) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  answer(nextChallenge(), L"wrong");
  answer(nextChallenge(), L"wrong");
  EXPECT_EQ(started.wait().reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(timesSent(L"wrong"), 1U);
}

TEST_F(SessionCredentialsTest, SendsAWrongPasswordOnceForAHundredOrigins) {
  next(session);
  std::vector<Started> started;
  for (int i = 0; i < 100; ++i) {
    started.push_back(start(session, (L"http://h" + std::to_wstring(i) + L".test/").c_str(), KIV_NO_TIME_OUT));
  }
  answer(nextChallenge(), L"wrong");
  answer(nextChallenge(), L"wrong too");
  for (const Started& one : started) EXPECT_EQ(one.wait().reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(timesSent(L"wrong"), 1U);
  EXPECT_EQ(timesSent(L"wrong too"), 1U);
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 2U);
}

TEST_F(SessionCredentialsTest, LetsAHundredOriginsWaitForOneAnswer) {
  next(session);
  std::vector<Started> started;
  for (int i = 0; i < 100; ++i) {
    started.push_back(start(session, (L"http://h" + std::to_wstring(i) + L".test/").c_str(), KIV_NO_TIME_OUT));
  }
  answer(nextChallenge(), L"right");
  for (const Started& one : started) EXPECT_EQ(one.wait().route(), L"http://proxy:1");
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 1U);
}

TEST_F(SessionCredentialsTest, AsksNobodyAgainAfterADecline) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  nextChallenge();  // released unanswered
  EXPECT_EQ(started.wait().reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(resolve(session, L"http://b.test/").reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 1U);
  KivSession_ForgetCredentials(session.get());
  const Started again = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  while (next(session).kind() == KIV_EVENT_COMPLETED) continue;
  time.settle();
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 2U);
}

TEST_F(SessionCredentialsTest, KeepsTheCandidatesPlaceWhileTheQuestionIsOpen) {
  useProxies(L"proxy:1;other:2");
  windows.http.decide = [this](const RequestRecord& request) {
    return proxyOf(request) == L"proxy:1" ? wantsPassword(request, password) : Exchange{};
  };
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  const UniqueChallenge challenge = nextChallenge();
  time.advance(60'000ms);
  EXPECT_EQ(started.wait(0).status, KIV_STATUS_NOT_YET);
  EXPECT_EQ(sentThrough(L"other:2"), 0U);
  EXPECT_EQ(KivChallenge_Decline(challenge.get()), KIV_STATUS_OK);
  EXPECT_EQ(started.wait().route(), L"http://other:2");
}

TEST_F(SessionCredentialsTest, LetsTheQuestionOutliveItsCallersForFiveMinutes) {
  next(session);
  EXPECT_EQ(resolve(session, L"http://a.test/", 1'000).status, KIV_STATUS_TIMED_OUT);
  const UniqueChallenge challenge = nextChallenge();
  time.advance(299'000ms);
  EXPECT_FALSE(KivChallenge_IsWithdrawn(challenge.get()));
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_OK);
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://proxy:1");
}

TEST_F(SessionCredentialsTest, WithdrawsAQuestionThatNobodyWaitsForAnyMore) {
  next(session);
  EXPECT_EQ(resolve(session, L"http://a.test/", 1'000).status, KIV_STATUS_TIMED_OUT);
  const UniqueChallenge challenge = nextChallenge();
  time.advance(301'000ms);
  EXPECT_TRUE(KivChallenge_IsWithdrawn(challenge.get()));
  const Told told = next(session);
  EXPECT_EQ(told.kind(), KIV_EVENT_WITHDRAWN);
  EXPECT_EQ(told.challenge().get(), challenge.get());
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_TOO_LATE);
  // It counts neither as asked nor as declined.
  const Started started = start(session, L"http://a.test/");
  EXPECT_EQ(KivChallenge_Attempt(nextChallenge().get()), 1U);
}

TEST_F(SessionCredentialsTest, KeepsTheQuestionThroughAChangeIfTheProxyIsMetAgain) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  const UniqueChallenge challenge = nextChallenge();
  windows.user.bypass = L"other.test";
  windows.changeRegistry(L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections");
  time.advance(100ms);
  EXPECT_EQ(counter(session, KIV_COUNTER_CHANGES), 1U);
  EXPECT_FALSE(KivChallenge_IsWithdrawn(challenge.get()));
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_OK);
  EXPECT_EQ(started.wait().route(), L"http://proxy:1");
}

TEST_F(SessionCredentialsTest, WithdrawsTheQuestionAfterAChangeIfTheProxyIsNotMetAgain) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  const UniqueChallenge challenge = nextChallenge();
  useProxies(L"other:2");
  password = L"";
  windows.http.decide = [](const RequestRecord&) { return Exchange{}; };
  windows.changeRegistry(L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections");
  EXPECT_EQ(started.wait().route(), L"http://other:2");
  time.settle();
  EXPECT_TRUE(KivChallenge_IsWithdrawn(challenge.get()));
}

TEST_F(SessionCredentialsTest, AsksNobodyWhereTheApplicationsClientSpeaksNoSchemeOfTheProxy) {
  set(KIV_OPTION_SCHEMES, KIV_SCHEME_NTLM);
  next(session);
  EXPECT_EQ(resolve(session, L"http://a.test/").reason(), KIV_REASON_SCHEME_UNSUPPORTED);
  EXPECT_EQ(counter(session, KIV_COUNTER_CHALLENGES), 0U);
}

TEST_F(SessionCredentialsTest, DropsCredentialsThatTheApplicationSaysWereRefused) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  const Result result = resolve(session, L"http://a.test/");
  EXPECT_EQ(KivSession_ReportFailure(session.get(), result.decision.get(), KIV_FAILURE_PROXY_CREDENTIALS),
            KIV_STATUS_OK);
  EXPECT_EQ(resolve(session, L"http://a.test/").reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(timesSent(L"right"), 1U);
  KivSession_ForgetCredentials(session.get());
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://proxy:1") << "what was given may be tried again";
}

// R sent credentials that were proven; before its answer comes, the proxy refuses them to others, who then ask.
TEST_F(SessionCredentialsTest, TakesAnAnswerToOlderCredentialsForNoProofOfNewerOnes) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  next(session);
  resolve(session, L"http://a.test/");
  bool changed = false;
  windows.http.decide = [&](const RequestRecord& request) {
    if (request.host == L"slow.test") return Exchange{.answering = 5s};
    return wantsPassword(request, changed ? L"new" : L"right");
  };
  const Started slow = start(session, L"http://slow.test/", KIV_NO_TIME_OUT);
  time.advance(1s);
  changed = true;
  const Started second = start(session, L"http://b.test/", KIV_NO_TIME_OUT);
  UniqueChallenge challenge;
  for (Told told = next(session, 1'000); !challenge && told.event; told = next(session, 1'000)) {
    challenge = told.challenge();
  }
  ASSERT_TRUE(challenge);
  time.advance(3'900ms);
  windows.http.decide = [](const RequestRecord& request) {
    return request.host == L"slow.test" ? Exchange{} : wantsPassword(request, L"new");
  };
  answer(challenge, L"mistyped");
  for (int i = 0; i < 20; ++i) start(session, (L"http://h" + std::to_wstring(i) + L".test/").c_str(), KIV_NO_TIME_OUT);
  EXPECT_EQ(slow.wait().route(), L"http://proxy:1");
  time.advance(1s);
  EXPECT_EQ(timesSent(L"mistyped"), 1U);
}

TEST_F(SessionCredentialsTest, KeepsTheQuestionThroughTwoChangesInARow) {
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  const UniqueChallenge challenge = nextChallenge();
  windows.user.autoConfigUrl = L"http://pac.test/proxy.pac";
  windows.autoConfig = {{.proxy = L"proxy:1", .takes = 1s}};
  for (const wchar_t* const bypass : {L"one.test", L"two.test"}) {
    windows.user.bypass = bypass;
    windows.changeRegistry(L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections");
    time.advance(200ms);
  }
  EXPECT_EQ(counter(session, KIV_COUNTER_CHANGES), 2U);
  time.advance(2s);
  EXPECT_FALSE(KivChallenge_IsWithdrawn(challenge.get()));
  EXPECT_EQ(answer(challenge, L"right"), KIV_STATUS_OK);
  EXPECT_EQ(started.wait().route(), L"http://proxy:1");
}

TEST_F(SessionCredentialsTest, SendsAWrongPasswordToASocksProxyOnce) {
  windows.user.proxy = std::nullopt;
  set(KIV_OPTION_DIRECT, KIV_DIRECT_NEVER);
  windows.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = [](std::string_view received) {
    if (received.empty()) return Reply{};
    return Reply{.bytes = received.size() <= 4 ? std::string("\x05\x02") : std::string("\x01\x01")};
  }};
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"socks5://10.0.0.1:1080", L"ann", L"wrong"),
            KIV_STATUS_OK);
  std::vector<Started> started;
  for (int i = 0; i < 20; ++i)
    started.push_back(start(session, (L"http://h" + std::to_wstring(i) + L".test/").c_str()));
  for (const Started& one : started) EXPECT_EQ(one.wait().route(), L"none");
  std::size_t sent = 0;
  for (const ConnectionRecord& connection : windows.connections()) {
    sent += connection.received.find("wrong") != std::string::npos;
  }
  EXPECT_EQ(sent, 1U);
}

TEST_F(SessionCredentialsTest, TellsTheSchemeAlsoIfTheTargetsCertificateIsRefused) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  windows.http.decide = [this](const RequestRecord& request) {
    if (request.credentials.empty()) return wantsPassword(request, password);
    return Exchange{.sendError = ERROR_WINHTTP_SECURE_FAILURE};
  };
  const Result result = resolve(session, L"https://a.test/");
  EXPECT_EQ(result.reason(), KIV_REASON_REACHED);
  EXPECT_EQ(KivDecision_AuthScheme(result.decision.get()), KIV_SCHEME_BASIC);
}

TEST_F(SessionCredentialsTest, TakesCredentialsBackWithTheProxy) {
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", L"ann", L"right"), KIV_STATUS_OK);
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_PREFERRED, L"proxy:1", nullptr, nullptr), KIV_STATUS_OK);
  EXPECT_EQ(resolve(session, L"http://a.test/").reason(), KIV_REASON_CREDENTIALS_WANTED);
  EXPECT_EQ(timesSent(L"right"), 0U);
}

TEST_F(SessionCredentialsTest, LeavesTheUserOfAThreadThatAuthenticatesAsItWas) {
  set(KIV_OPTION_TEST, KIV_TEST_NONE);
  const Result result = resolve(session, L"http://a.test/");
  windows.impersonate(L"client");
  KivAuth* created = nullptr;
  EXPECT_EQ(KivAuth_Create(session.get(), result.decision.get(), &created), KIV_STATUS_OK);
  const UniqueAuth auth(created);
  const wchar_t* header = nullptr;
  EXPECT_EQ(KivAuth_Next(auth.get(), L"NTLM", &header), KIV_STATUS_AGAIN);
  for (const Call& call : windows.calls()) {
    if (call.name != "InitializeSecurityContextW") continue;
    EXPECT_EQ(call.user, L"") << "the session's user is the process's";
  }
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
  CloseHandle(token);
  windows.impersonate(L"");
}

TEST_F(SessionCredentialsTest, WipesEveryPassword) {
  const ExpectSecretWiped secret(L"a very secret password");
  password = L"a very secret password";
  next(session);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  answer(nextChallenge(), L"a very secret password");
  EXPECT_EQ(started.wait().route(), L"http://proxy:1");
  session.reset();
  time.settle();
}

}  // namespace
}  // namespace kiv::test
