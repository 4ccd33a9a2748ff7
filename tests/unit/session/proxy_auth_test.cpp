// Tests of answering a proxy's 407: schemes, credentials that are refused, questions, and what can fail.
#include "credentials/proxy_auth.h"

#include <gmock/gmock.h>

#include "credentials/base64.h"
#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::AuthSession;
using session::makeRef;
using session::ProxyAuth;
using session::ProxyCredentials;
using session::Ref;
using session::Route;
using session::RouteKind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kAllSchemes = KIV_SCHEME_BASIC | KIV_SCHEME_NTLM | KIV_SCHEME_DIGEST | KIV_SCHEME_NEGOTIATE;
constexpr std::wstring_view kPassword = L"open-sesame-in-a-block-of-its-own";
const Route kProxy{RouteKind::Http, L"proxy", 8080};

// Notes what it is asked.
class FakeSession final : public AuthSession {
 public:
  KivStatus askFor(const Route& proxy, std::uint32_t scheme, std::wstring_view realm) noexcept override {
    const MemoryWatch::Pause pause;
    EXPECT_EQ(proxy, kProxy);
    asked.emplace_back(scheme, realm);
    return askStatus;
  }
  void refusedBy(const Route& proxy, const impl::Cred& cred) noexcept override {
    const MemoryWatch::Pause pause;
    refused.push_back(cred.username());
    credentials->refused(proxy, cred);
  }
  ProxyCredentials& proxyCredentials() noexcept override { return *credentials; }
  std::uint32_t loggedOnUser() const noexcept override { return policy; }
  std::uint32_t schemes() const noexcept override { return allowed; }
  bool isClosed() const noexcept override { return closed; }
  bool asUser(void (*body)(void*), void* argument) noexcept override {
    if (!canBeUser) return false;
    isUser = true;
    body(argument);
    isUser = false;
    return true;
  }

  Ref<ProxyCredentials> credentials = makeRef<ProxyCredentials>();
  std::uint32_t policy = KIV_LOGGED_ON_USER_NEVER;
  std::uint32_t allowed = kAllSchemes;
  bool closed = false;
  bool canBeUser = true;
  bool isUser = false;
  KivStatus askStatus = KIV_STATUS_NOT_YET;
  std::vector<std::pair<std::uint32_t, std::wstring>> asked;
  std::vector<std::wstring> refused;

 private:
  void run() noexcept override {}
};

std::wstring base64(std::string_view bytes) {
  impl::SecureWideBuffer text;
  session::appendBase64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, text);
  return {text.begin(), text.end()};
}

// The bytes behind the scheme; nothing if the header is of another one.
std::optional<std::string> tokenIn(std::wstring_view header, std::wstring_view scheme) {
  if (!header.starts_with(scheme) || header.size() <= scheme.size()) return std::nullopt;
  const auto bytes = session::fromBase64(header.substr(scheme.size() + 1));
  return bytes ? std::optional(std::string(bytes->begin(), bytes->end())) : std::nullopt;
}

struct Step {
  KivStatus status = 0;
  std::wstring header;  // "null" for none

  bool operator==(const Step&) const = default;
};

void PrintTo(const Step& step, std::ostream* out) {
  *out << std::hex << step.status << " " << std::string(step.header.begin(), step.header.end());
}

class ProxyAuthTest : public PlatformTest {
 protected:
  void give(std::wstring_view user, std::wstring_view password = kPassword) {
    session->credentials->answered(kProxy, *impl::Cred::create(user, password));
  }
  Step next(const wchar_t* headers) { return next(*auth, headers); }
  static Step next(ProxyAuth& auth, const wchar_t* headers) {
    const wchar_t* header = nullptr;
    const KivStatus status = auth.next(headers, &header);
    return {status, header ? header : L"null"};
  }
  Ref<ProxyAuth> another(std::uint32_t scheme = 0) { return makeRef<ProxyAuth>(session, kProxy, scheme); }
  std::wstring challenge(std::wstring_view scheme, std::string_view nonce = "nonce-of") {
    return std::wstring(scheme) + L" " + base64(ntlmChallenge(nonce));
  }

  Ref<FakeSession> session = makeRef<FakeSession>();
  Ref<ProxyAuth> auth = another();
};

const Step kNotYet{KIV_STATUS_NOT_YET, L"null"};
const Step kRejected{KIV_STATUS_REJECTED, L"null"};
const Step kUnsupported{KIV_STATUS_UNSUPPORTED, L"null"};
const Step kNothingToSend{KIV_STATUS_DONE, L"null"};

TEST_F(ProxyAuthTest, SendsBasicInUtf8) {
  give(L"M\u00FCller", L"\u65E5\u672C");
  EXPECT_EQ(next(L"Basic realm=\"x\""),
            (Step{KIV_STATUS_DONE, L"Basic " + base64("M\xC3\xBCller:\xE6\x97\xA5\xE6\x9C\xAC")}));
}

TEST_F(ProxyAuthTest, AnswersTheExampleOfRfc7617) {
  give(L"Aladdin", L"open sesame");
  EXPECT_EQ(next(L"Basic realm=\"WallyWorld\""), (Step{KIV_STATUS_DONE, L"Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ=="}));
}

TEST_F(ProxyAuthTest, DoesNotSendBasicForAUserNameWithAColon) {
  give(L"a:b");
  EXPECT_EQ(next(L"Basic realm=\"x\""), kUnsupported);
  EXPECT_EQ(next(L"Basic realm=\"x\"\r\nNTLM").status, KIV_STATUS_AGAIN);
}

TEST_F(ProxyAuthTest, TakesA407AfterBasicForARefusal) {
  give(L"user");
  EXPECT_EQ(next(L"Basic realm=\"x\"").status, KIV_STATUS_DONE);
  EXPECT_EQ(next(L"Basic realm=\"x\""), kRejected);
  EXPECT_THAT(session->refused, ElementsAre(L"user"));
  EXPECT_EQ(next(L"Basic realm=\"x\""), kNotYet) << "they must not be sent again";
  EXPECT_EQ(next(*another(), L"Basic realm=\"x\""), kNotYet);
}

TEST_F(ProxyAuthTest, AsksAndContinuesWhenTheAnswerHasCome) {
  EXPECT_EQ(next(L"Basic realm=\"of the proxy\", NTLM"), kNotYet);
  EXPECT_THAT(session->asked, ElementsAre(std::pair(KIV_SCHEME_NTLM, std::wstring())));
  EXPECT_EQ(next(nullptr), kNotYet);
  session->allowed = KIV_SCHEME_BASIC;
  EXPECT_EQ(next(L""), kNotYet);
  EXPECT_EQ(session->asked.back(), std::pair(KIV_SCHEME_BASIC, std::wstring(L"of the proxy")));
  give(L"user", L"x");
  EXPECT_EQ(next(nullptr), (Step{KIV_STATUS_DONE, L"Basic " + base64("user:x")}));
}

TEST_F(ProxyAuthTest, SaysWhatBecameOfTheQuestion) {
  for (const KivStatus status : {KIV_STATUS_UNSUPPORTED, KIV_STATUS_CLOSED, KIV_STATUS_OUT_OF_MEMORY}) {
    session->askStatus = status;
    EXPECT_EQ(next(L"NTLM"), (Step{status, L"null"}));
    EXPECT_EQ(next(nullptr), kNothingToSend);
  }
}

TEST_F(ProxyAuthTest, ShakesHandsWithTheSessionsCredentials) {
  for (const std::wstring scheme : {L"NTLM", L"Negotiate"}) {
    const Ref<ProxyAuth> one = another();
    give(L"CORP\\pam");
    const Step first = next(*one, scheme.c_str());
    EXPECT_EQ(first.status, KIV_STATUS_AGAIN);
    EXPECT_TRUE(tokenIn(first.header, scheme));
    const Step second = next(*one, challenge(scheme).c_str());
    EXPECT_EQ(second.status, KIV_STATUS_DONE);
    const auto answer = readNtlmAnswer(tokenIn(second.header, scheme).value_or(""));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->nonce, "nonce-of");
    EXPECT_EQ(answer->user, L"pam");
    const IdentityRecord identity = windows.identities().back();
    EXPECT_EQ(identity.package, scheme);
    EXPECT_EQ(identity.domain, L"CORP");
    EXPECT_TRUE(identity.passwordWas(kPassword));
    const HandshakeRecord handshake = windows.handshakes().back();
    EXPECT_EQ(handshake.targetName, L"HTTP/proxy");
    EXPECT_EQ(handshake.requirements, DWORD{ISC_REQ_CONNECTION | ISC_REQ_ALLOCATE_MEMORY});
  }
  EXPECT_THAT(session->refused, IsEmpty());
}

TEST_F(ProxyAuthTest, PicksTheStrongestSchemeThatIsAllowedAndThere) {
  struct Case {
    const wchar_t* headers;
    std::uint32_t allowed;
    std::vector<std::wstring> present;
    std::wstring scheme;
  };
  for (const Case& c : {Case{L"Basic realm=\"x\"\nNTLM\nNegotiate", kAllSchemes, {L"NTLM", L"Negotiate"}, L"Negotiate"},
                        Case{L"Basic realm=\"x\", NTLM", kAllSchemes, {L"NTLM", L"Negotiate"}, L"NTLM"},
                        Case{L"Negotiate, NTLM", KIV_SCHEME_NTLM, {L"NTLM", L"Negotiate"}, L"NTLM"},
                        Case{L"Negotiate, NTLM", kAllSchemes, {L"NTLM"}, L"NTLM"},
                        Case{L"Negotiate, Basic realm=\"x\"", kAllSchemes, {}, L"Basic"},
                        Case{L"Digest realm=\"x\", nonce=\"y\", Basic realm=\"x\"", kAllSchemes, {}, L"Basic"}}) {
    windows.security.present = c.present;
    session->allowed = c.allowed;
    give(L"user");
    EXPECT_TRUE(next(*another(), c.headers).header.starts_with(c.scheme + L" ")) << testing::PrintToString(c.scheme);
  }
}

TEST_F(ProxyAuthTest, CannotAnswerWhatItDoesNotSpeak) {
  give(L"user");
  EXPECT_EQ(next(L"Digest realm=\"x\", nonce=\"y\""), kUnsupported);
  EXPECT_EQ(next(L"Unheard-Of abc"), kUnsupported);
  session->allowed = KIV_SCHEME_BASIC;
  EXPECT_EQ(next(L"NTLM, Negotiate"), kUnsupported);
  EXPECT_THAT(session->asked, IsEmpty());
}

TEST_F(ProxyAuthTest, TellsWhyNoPackageServed) {
  windows.security.present = {};
  give(L"user");
  EXPECT_EQ(next(L"NTLM"), (Step{static_cast<KivStatus>(SEC_E_SECPKG_NOT_FOUND), L"null"}));
  EXPECT_EQ(next(L"NTLM"), kUnsupported);
}

TEST_F(ProxyAuthTest, TakesAFreshChallengeAfterTheLastLegForARefusal) {
  give(L"user");
  EXPECT_EQ(next(L"NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next(challenge(L"NTLM").c_str()).status, KIV_STATUS_DONE);
  EXPECT_EQ(next(L"NTLM"), kRejected);
  EXPECT_THAT(session->refused, ElementsAre(L"user"));
  EXPECT_EQ(next(L"NTLM"), kNotYet);
}

TEST_F(ProxyAuthTest, SendsNothingMoreOfCredentialsThatAreNotUsableAnyMore) {
  const auto forgetAll = [](FakeSession& session) { session.credentials->forget(); };
  const auto refuse = [](FakeSession& session) {
    session.credentials->refused(kProxy, *impl::Cred::create(L"user", kPassword));
  };
  const auto replace = [](FakeSession& session) {
    session.credentials->forget();
    session.credentials->answered(kProxy, *impl::Cred::create(L"user", L"another"));
  };
  for (void (*const end)(FakeSession&) : {+forgetAll, +refuse, +replace}) {
    session->credentials->forget();
    give(L"user");
    const Ref<ProxyAuth> one = another();
    EXPECT_EQ(next(*one, L"NTLM").status, KIV_STATUS_AGAIN);
    const std::size_t handshakes = windows.count("InitializeSecurityContextW");
    end(*session);
    EXPECT_EQ(next(*one, challenge(L"NTLM").c_str()), kRejected);
    EXPECT_EQ(windows.count("InitializeSecurityContextW"), handshakes);
  }
  EXPECT_THAT(session->refused, IsEmpty());
  EXPECT_EQ(next(L"NTLM").status, KIV_STATUS_AGAIN) << "a new connection has the new ones to offer";
}

TEST_F(ProxyAuthTest, GoesOnWithTheApplicationsOwnCredentialsWhenAnswersAreForgotten) {
  session->credentials->give(kProxy, *impl::Cred::create(L"user", kPassword));
  EXPECT_EQ(next(L"NTLM").status, KIV_STATUS_AGAIN);
  session->credentials->forget();
  EXPECT_EQ(next(challenge(L"NTLM").c_str()).status, KIV_STATUS_DONE);
}

TEST_F(ProxyAuthTest, TakesAFreshChallengeAfterTheSecondLegOfNegotiateForARefusal) {
  windows.security.legs = {{SEC_I_CONTINUE_NEEDED, "one"}, {SEC_I_CONTINUE_NEEDED, "two"}};
  give(L"user");
  EXPECT_EQ(next(L"Negotiate").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next((L"Negotiate " + base64("a")).c_str()), (Step{KIV_STATUS_AGAIN, L"Negotiate " + base64("two")}));
  EXPECT_EQ(next(L"Negotiate"), kRejected);
  EXPECT_THAT(session->refused, ElementsAre(L"user"));
}

TEST_F(ProxyAuthTest, DoesNotTakeAHandshakeThatNeverBeganForARefusal) {
  give(L"user");
  EXPECT_EQ(next(L"Negotiate, NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next(L"Negotiate, NTLM").header.substr(0, 5), L"NTLM ");
  EXPECT_EQ(next(L"Negotiate, NTLM"), kUnsupported);
  EXPECT_THAT(session->refused, IsEmpty());
}

TEST_F(ProxyAuthTest, GoesOnWithAWeakerSchemeWhenATokenCannotBeRead) {
  give(L"user");
  for (const wchar_t* token : {L"NTLM a=", L"NTLM abc", L"NTLM YWJj"}) {
    const Ref<ProxyAuth> one = another();
    EXPECT_EQ(next(*one, L"NTLM").status, KIV_STATUS_AGAIN);
    EXPECT_EQ(next(*one, token), (Step{static_cast<KivStatus>(SEC_E_INVALID_TOKEN), L"null"}));
    EXPECT_EQ(next(*one, L"NTLM, Basic realm=\"x\"").header.substr(0, 6), L"Basic ");
  }
}

TEST_F(ProxyAuthTest, CompletesATokenWhereThePackageWantsIt) {
  give(L"user");
  windows.security.legs = {{SEC_I_COMPLETE_AND_CONTINUE, "one"}, {SEC_I_COMPLETE_NEEDED, "two"}};
  EXPECT_EQ(next(L"Negotiate").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next((L"Negotiate " + base64("a")).c_str()).status, KIV_STATUS_DONE);
  EXPECT_EQ(windows.count("CompleteAuthToken"), 2U);
}

TEST_F(ProxyAuthTest, TakesADeniedLogonForARefusal) {
  windows.security.legs = {{SEC_E_LOGON_DENIED}};
  give(L"user");
  EXPECT_EQ(next(L"Negotiate, NTLM"), kRejected);
  EXPECT_THAT(session->refused, ElementsAre(L"user"));
}

TEST_F(ProxyAuthTest, UsesTheLoggedOnUserWherePolicyAllows) {
  for (const std::uint32_t policy : {KIV_LOGGED_ON_USER_SYSTEM, KIV_LOGGED_ON_USER_PROXIES}) {
    session->policy = policy;
    const Ref<ProxyAuth> one = another();
    EXPECT_EQ(next(*one, L"NTLM, Basic realm=\"x\"").status, KIV_STATUS_AGAIN);
    const auto answer = readNtlmAnswer(tokenIn(next(*one, challenge(L"NTLM").c_str()).header, L"NTLM").value_or(""));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->user, L"logged-on");
    EXPECT_TRUE(windows.identities().back().loggedOn);
  }
  session->policy = KIV_LOGGED_ON_USER_NEVER;
  EXPECT_EQ(next(L"NTLM"), kNotYet);
  EXPECT_EQ(windows.identities().size(), 2U);
}

TEST_F(ProxyAuthTest, IsTheSessionsUserWhileItUsesTheirCredentials) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  std::vector<bool> asUser;
  windows.onCall = [&](const std::string& name) {
    if (name == "AcquireCredentialsHandleW" || name == "InitializeSecurityContextW") asUser.push_back(session->isUser);
  };
  next(L"NTLM");
  next(challenge(L"NTLM").c_str());
  EXPECT_THAT(asUser, ElementsAre(true, true, true));
}

TEST_F(ProxyAuthTest, AsksWhenTheSessionsUserCannotBeImpersonated) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  session->canBeUser = false;
  EXPECT_EQ(next(L"Negotiate, NTLM"), kNotYet);
  EXPECT_THAT(windows.identities(), IsEmpty());
}

TEST_F(ProxyAuthTest, PrefersTheSessionsCredentialsToTheLoggedOnUser) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  give(L"user");
  next(L"NTLM");
  EXPECT_EQ(windows.identities().back().user, L"user");
}

TEST_F(ProxyAuthTest, AsksOnceTheLoggedOnUserIsRefused) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  EXPECT_EQ(next(L"Negotiate, NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next(challenge(L"Negotiate").c_str()).status, KIV_STATUS_DONE);
  EXPECT_EQ(next(L"Negotiate, NTLM"), kNotYet);
  EXPECT_THAT(session->asked, ElementsAre(std::pair(KIV_SCHEME_NEGOTIATE, std::wstring())));
  EXPECT_EQ(windows.identities().size(), 1U) << "the logged-on user must not be offered again";
  EXPECT_THAT(session->refused, IsEmpty());
  give(L"user");
  EXPECT_EQ(next(L"Negotiate, NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(windows.identities().back().user, L"user");
}

TEST_F(ProxyAuthTest, WantsANewConnectionWhenTheAnswerComesInTheMiddleOfAHandshake) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  EXPECT_EQ(next(L"NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(next(L"NTLM YWJj"), kNotYet) << "the token cannot be read";
  EXPECT_EQ(next(nullptr), kNotYet);
  give(L"user");
  EXPECT_EQ(next(nullptr), kRejected);
  EXPECT_THAT(session->refused, IsEmpty());
  EXPECT_EQ(next(*another(), L"NTLM").status, KIV_STATUS_AGAIN);
  EXPECT_EQ(windows.identities().back().user, L"user");
}

TEST_F(ProxyAuthTest, AsksWhenTheLoggedOnUserHasNoCredentials) {
  session->policy = KIV_LOGGED_ON_USER_SYSTEM;
  windows.failAlways("AcquireCredentialsHandleW", static_cast<DWORD>(SEC_E_NO_CREDENTIALS));
  EXPECT_EQ(next(L"Negotiate, NTLM"), kNotYet);
  EXPECT_EQ(session->asked.back().first, KIV_SCHEME_NEGOTIATE);
}

TEST_F(ProxyAuthTest, SendsBasicBeforeAny407OnlyWhereItIsKnownToBeWanted) {
  give(L"user", L"x");
  EXPECT_EQ(next(nullptr), kNothingToSend);
  EXPECT_EQ(next(*another(KIV_SCHEME_NTLM), nullptr), kNothingToSend);
  const Ref<ProxyAuth> basic = another(KIV_SCHEME_BASIC);
  EXPECT_EQ(next(*basic, nullptr), (Step{KIV_STATUS_DONE, L"Basic " + base64("user:x")}));
  EXPECT_EQ(next(*basic, nullptr), kNothingToSend);
  EXPECT_EQ(next(*basic, L"Basic realm=\"x\""), kRejected);
  EXPECT_EQ(next(*another(KIV_SCHEME_BASIC), nullptr), kNothingToSend) << "they were refused";
}

TEST_F(ProxyAuthTest, DoesNothingForAClosedSessionOrForBadArguments) {
  give(L"user");
  EXPECT_EQ(auth->next(L"NTLM", nullptr), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(next(std::wstring(session::kLongestHeader + 1, L'x').c_str()), (Step{KIV_STATUS_BAD_ARGUMENT, L"null"}));
  session->closed = true;
  EXPECT_EQ(next(L"NTLM"), (Step{KIV_STATUS_CLOSED, L"null"}));
}

TEST_F(ProxyAuthTest, WipesPasswordsAndHeaders) {
  give(L"user");
  const ExpectSecretWiped password(kPassword);
  const ExpectSecretWiped header(L"dXNlcjpvcGVuLXNlc2FtZS1pbi1hLWJsb2NrLW9mLWl0cy1vd24=");
  {
    const MemoryWatch::Pause pause;
    const wchar_t* sent = nullptr;
    EXPECT_EQ(auth->next(L"Basic realm=\"x\"", &sent), KIV_STATUS_DONE);
    EXPECT_EQ(auth->next(L"Basic realm=\"x\"", &sent), KIV_STATUS_REJECTED);
  }
  auth = Ref<ProxyAuth>();
}

TEST(ProxyAuthFaults, LeaveNothingBehind) {
  forEachFault([](SimulatedWindows&) {
    const Ref<FakeSession> session = makeRef<FakeSession>();
    if (const auto cred = impl::Cred::create(L"user", kPassword)) session->credentials->answered(kProxy, *cred);
    const Ref<ProxyAuth> auth = makeRef<ProxyAuth>(session, kProxy);
    const std::wstring challenge = L"NTLM " + base64(ntlmChallenge("nonce-of"));
    const wchar_t* header = nullptr;
    for (const wchar_t* headers : {L"Negotiate, NTLM", challenge.c_str(), L"NTLM", L"Basic realm=\"x\""}) {
      const KivStatus status = auth->next(headers, &header);
      EXPECT_EQ(header != nullptr, status == KIV_STATUS_AGAIN || status == KIV_STATUS_DONE) << std::hex << status;
    }
  });
}

TEST(ProxyAuthWithoutMemory, SaysSo) {
  bool ranOut = false;
  forEachAllocation([&](SimulatedWindows&, const auto& armed) {
    const Ref<FakeSession> session = makeRef<FakeSession>();
    session->credentials->answered(kProxy, *impl::Cred::create(L"user", kPassword));
    const Ref<ProxyAuth> auth = makeRef<ProxyAuth>(session, kProxy);
    armed([&] {
      const wchar_t* header = nullptr;
      for (const wchar_t* headers : {L"NTLM", L"NTLM", L"Basic realm=\"x\""}) {
        const KivStatus status = auth->next(headers, &header);
        ranOut = ranOut || status == KIV_STATUS_OUT_OF_MEMORY;
        if (status == KIV_STATUS_OUT_OF_MEMORY && header) ADD_FAILURE() << "a header was handed out";
      }
    });
  });
  EXPECT_TRUE(ranOut);
}

TEST(Base64, IsReadAsItIsWritten) {
  for (const std::string_view bytes : {"", "f", "fo", "foo", "foob", "fooba", "foobar", "\xFF\xFE\xFD"}) {
    const auto read = session::fromBase64(base64(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(std::string(read->begin(), read->end()), bytes);
  }
  EXPECT_EQ(base64("foob"), L"Zm9vYg==");
  for (const wchar_t* text : {L"Z", L"Zm9", L"Zm9v=", L"Zm 9", L"=Zm9", L"Zm9vYg=a", L"\u30A1m9v", L"A==="}) {
    EXPECT_FALSE(session::fromBase64(text)) << testing::PrintToString(std::wstring(text));
  }
}

TEST(Utf8, IsWrittenForHalvesOfPairsToo) {
  struct Case {
    std::wstring text;
    std::string bytes;
  };
  for (const Case& c :
       {Case{L"a", "a"}, Case{L"\u00FC", "\xC3\xBC"}, Case{L"\u20AC", "\xE2\x82\xAC"},
        Case{{wchar_t(0xD83D), wchar_t(0xDE00)}, "\xF0\x9F\x98\x80"}, Case{{wchar_t(0xD83D)}, "\xEF\xBF\xBD"},
        Case{{wchar_t(0xDE00), L'a'},
             "\xEF\xBF\xBD"
             "a"},
        Case{{wchar_t(0xD83D), L'a'},
             "\xEF\xBF\xBD"
             "a"}}) {
    session::SecureBytes bytes;
    session::appendUtf8(c.text, bytes);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), c.bytes);
  }
}

}  // namespace
}  // namespace kiv::test
