// Tests of the Proxy-Authenticate headers of a 407.
#include "credentials/challenges.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kiv/session.h"
#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::HeaderChallenge;
using session::readChallenges;
using Challenges = std::vector<HeaderChallenge>;

constexpr std::uint32_t kBasic = KIV_SCHEME_BASIC;
constexpr std::uint32_t kNtlm = KIV_SCHEME_NTLM;
constexpr std::uint32_t kDigest = KIV_SCHEME_DIGEST;
constexpr std::uint32_t kNegotiate = KIV_SCHEME_NEGOTIATE;

std::wstring realmOf(const std::wstring& headers) {
  const Challenges challenges = readChallenges(headers);
  return challenges.size() == 1 ? challenges[0].realm : L"not one challenge";
}

TEST(ChallengesTest, AreSeparatedByCommasAndLines) {
  struct Case {
    const wchar_t* headers;
    Challenges expected;
  };
  const std::vector<Case> cases = {
      {L"", {}},
      {L" \t,, ,\r\n\n\r", {}},
      {L"Basic", {{kBasic, L"", L""}}},
      {L"NEGOTIATE, ntlm,digest ,\tBaSiC",
       {{kNegotiate, L"", L""}, {kNtlm, L"", L""}, {kDigest, L"", L""}, {kBasic, L"", L""}}},
      {L"Negotiate\nNTLM\r\nBasic realm=\"r\"\r\n", {{kNegotiate, L"", L""}, {kNtlm, L"", L""}, {kBasic, L"", L"r"}}},
      {L"Basic realm=\"a\", charset=\"UTF-8\", NTLM", {{kBasic, L"", L"a"}, {kNtlm, L"", L""}}},
      {L"Digest nonce=\"n\", realm=\"a\", qop=\"auth,auth-int\", Basic realm=b",
       {{kDigest, L"", L"a"}, {kBasic, L"", L"b"}}},
      {L"Newauth realm=\"apps\", type=1, title=\"Login to \\\"apps\\\"\", Basic realm=\"simple\"",
       {{0, L"", L"apps"}, {kBasic, L"", L"simple"}}},
      {L"Basic ,, realm=\"a\"", {{kBasic, L"", L"a"}}},
      {L"Unknown, Other a=b", {{0, L"", L""}, {0, L"", L""}}},
      {L"Basic realm=\"a\"\ncharset=x, realm=\"b\"", {{kBasic, L"", L"a"}}},
      {L"realm=\"a\", Basic", {{kBasic, L"", L""}}},
      {L"realm = \"a\", Basic", {{kBasic, L"", L""}}},
  };
  for (const Case& c : cases) EXPECT_EQ(readChallenges(c.headers), c.expected) << c.headers;
}

TEST(ChallengesTest, OfNtlmAndNegotiateHaveATokenAndOthersHaveNot) {
  struct Case {
    const wchar_t* headers;
    Challenges expected;
  };
  const std::vector<Case> cases = {
      {L"NTLM TlRMTVNTUAAC", {{kNtlm, L"TlRMTVNTUAAC", L""}}},
      {L"Negotiate  a-._~+/Z09== ", {{kNegotiate, L"a-._~+/Z09==", L""}}},
      {L"Negotiate ab=, NTLM cd==", {{kNegotiate, L"ab=", L""}, {kNtlm, L"cd==", L""}}},
      {L"Negotiate ab=c", {{kNegotiate, L"", L""}}},
      {L"Negotiate /=, =", {{kNegotiate, L"/=", L""}}},
      {L"Negotiate ab cd", {{kNegotiate, L"", L""}}},
      {L"Negotiate realm=\"a\"", {{kNegotiate, L"", L"a"}}},
      {L"Basic abcd==", {{kBasic, L"", L""}}},
      {L"Digest abcd, Other efgh", {{kDigest, L"", L""}, {0, L"", L""}}},
  };
  for (const Case& c : cases) EXPECT_EQ(readChallenges(c.headers), c.expected) << c.headers;
}

TEST(ChallengesTest, HaveTheRealmThatIsWrittenFirst) {
  struct Case {
    const wchar_t* headers;
    const wchar_t* realm;
  };
  const std::vector<Case> cases = {
      {L"Basic realm=\"a, b\"", L"a, b"},
      {L"Basic realm=token", L"token"},
      {L"Basic REALM \t= \t\"a\" ", L"a"},
      {L"Basic realm=\"a\", realm=\"b\"", L"a"},
      {L"Basic other=x, realm=\"b\"", L"b"},
      {L"Basic realms=x, xrealm=y", L""},
      {L"Basic realm=\"\"", L""},
      {L"Basic realm=\"say \\\"a\\\\b\\c\\\"\"", L"say \"a\\bc\""},
      {L"Basic realm=\"a\" junk, NTLM=1", L"a"},
      {L"Basic x=y \"realm=b, \" z, realm=\"c\"", L"c"},
      {L"Basic realm=\"b\x00FC"
       L"cher\"",
       L"b\x00FC"
       L"cher"},
      {L"Basic realm=\"a\tb\x01"
       L"c\x7F\x85\x9F\x2028\"",
       L"a\xFFFD"
       L"b\xFFFD"
       L"c\xFFFD\xFFFD\xFFFD\xFFFD"},
      {L"Basic realm=\"endless", L""},
      {L"Basic realm=\"endless\\", L""},
      {L"Basic realm=\"endless\\\"", L""},
  };
  for (const Case& c : cases) EXPECT_EQ(realmOf(c.headers), c.realm) << c.headers;
}

TEST(ChallengesTest, ThatCannotBeReadArePassedOver) {
  const Challenges basic = {{kBasic, L"", L"r"}};
  for (const wchar_t* headers :
       {L"@ / ;, Basic realm=r", L"\"quoted, NTLM\", Basic realm=r", L"=x, Basic realm=r", L"\"endless\nBasic realm=r",
        L"\xFF\x3042, Basic realm=r", L"Basic realm=r, @, \"\""}) {
    EXPECT_EQ(readChallenges(headers), basic) << headers;
  }
  EXPECT_EQ(readChallenges(std::wstring_view(L"\0, Basic realm=r", 16)), basic);
}

TEST(ChallengesTest, HaveARealmOfAtMost1024Characters) {
  const std::wstring longest(1024, L'r');
  EXPECT_EQ(realmOf(L"Basic realm=\"" + longest + L"\""), longest);
  EXPECT_EQ(realmOf(L"Basic realm=\"" + longest + L"x\", NTLM=1"), longest);
  EXPECT_EQ(realmOf(L"Basic realm=" + longest + L"x"), longest);
  const std::wstring cut = L"Basic realm=\"" + longest.substr(1) + wchar_t{0xD83D} + wchar_t{0xDE00} + L"\"";
  EXPECT_EQ(realmOf(cut), longest.substr(1));
}

TEST(ChallengesTest, AreAtMost16) {
  std::wstring headers;
  for (int i = 0; i < 16; ++i) headers += L"NTLM,";
  EXPECT_EQ(readChallenges(headers).size(), 16U);
  EXPECT_EQ(readChallenges(headers + L"Basic, realm=x\nDigest").size(), 16U);
}

TEST(ChallengesTest, AreReadFrom65536CharactersAndNoMore) {
  std::wstring headers = L"Basic realm=r, x=\"";
  headers.resize(65'536, L',');
  EXPECT_EQ(readChallenges(headers), (Challenges{{kBasic, L"", L"r"}}));
  EXPECT_EQ(readChallenges(headers + L','), Challenges());
}

TEST(ChallengesTest, OfferTheStrongestSchemeThatIsAllowed) {
  struct Case {
    std::uint32_t offered;
    std::uint32_t allowed;
    std::uint32_t expected;
  };
  constexpr std::uint32_t kAll = kBasic | kNtlm | kDigest | kNegotiate;
  const std::vector<Case> cases = {
      {0, kAll, 0},
      {kAll, 0, 0},
      {kAll, kAll, kNegotiate},
      {kAll, kAll & ~kNegotiate, kNtlm},
      {kBasic | kDigest, kAll, kDigest},
      {kBasic, kAll, kBasic},
      {kBasic, kNtlm, 0},
      {0x4, 0xFFFFFFFF, 0},
  };
  for (const Case& c : cases) EXPECT_EQ(session::strongestScheme(c.offered, c.allowed), c.expected);
}

}  // namespace
}  // namespace kiv::test
