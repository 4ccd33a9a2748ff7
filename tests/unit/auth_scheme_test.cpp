// Tests of the choice of the authentication scheme that answers a challenge.
#include "http/auth_scheme.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/platform_test.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using impl::chooseScheme;
using impl::chooseServerScheme;
using Scheme = std::optional<DWORD>;

constexpr DWORD kBasic = 0x1;
constexpr DWORD kNtlm = 0x2;
constexpr DWORD kPassport = 0x4;
constexpr DWORD kDigest = 0x8;
constexpr DWORD kNegotiate = 0x10;
constexpr DWORD kEverySet = 0x20;

constexpr const wchar_t* kVariable = L"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME";

class AuthSchemeTest : public PlatformTest {};

// The preference, written out another way than the library does.
Scheme expectedScheme(DWORD supported) {
  if (supported & kNegotiate) return kNegotiate;
  if (supported & kNtlm) return kNtlm;
  if (supported & kPassport) return kPassport;
  if (supported & kDigest) return kDigest;
  if (supported & kBasic) return kBasic;
  return std::nullopt;
}

TEST_F(AuthSchemeTest, PrefersNegotiateThenNtlmThenPassportThenDigestThenBasic) {
  for (DWORD supported = 0; supported < kEverySet; ++supported) {
    SCOPED_TRACE(supported);
    EXPECT_EQ(chooseScheme(supported), expectedScheme(supported));
  }
}

TEST_F(AuthSchemeTest, GivesNegotiateToAServerThatOffersNegotiateAndBasic) {
  EXPECT_EQ(chooseServerScheme(kNegotiate | kBasic, false), Scheme(kNegotiate));
  EXPECT_EQ(chooseServerScheme(kNegotiate | kBasic, true), Scheme(kNegotiate));
}

TEST_F(AuthSchemeTest, IgnoresSchemesThatItDoesNotKnow) {
  EXPECT_EQ(chooseScheme(0x20), std::nullopt);
  EXPECT_EQ(chooseScheme(~(kEverySet - 1)), std::nullopt);
  EXPECT_EQ(chooseScheme(~(kEverySet - 1) | kDigest), Scheme(kDigest));
  EXPECT_EQ(chooseScheme(0xFFFFFFFF), Scheme(kNegotiate));
}

TEST_F(AuthSchemeTest, AcceptsBasicForAProxyWithoutAskingTheEnvironment) {
  EXPECT_EQ(chooseScheme(kBasic), Scheme(kBasic));
  EXPECT_EQ(windows.count("GetEnvironmentVariableW"), 0U);
}

TEST_F(AuthSchemeTest, RefusesBasicForAServerOverPlainHttpUnlessTheEnvironmentAllowsIt) {
  struct Case {
    std::optional<std::wstring> value;
    bool allowed;
  };
  const Case cases[] = {
      {std::nullopt, false}, {L"0", false}, {L"1", true},  {L"", true},   {L"00", true},
      {L"false", true},      {L" 0", true}, {L"0 ", true}, {L"no", true}, {std::wstring(5000, L'0'), true}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.value ? "the variable is \"" + std::string(test.value->begin(), test.value->end()) + "\""
                            : "there is no variable");
    windows.environment.clear();
    if (test.value) windows.environment[kVariable] = *test.value;
    for (DWORD supported = 0; supported < kEverySet; ++supported) {
      SCOPED_TRACE(supported);
      const Scheme any = expectedScheme(supported);
      EXPECT_EQ(chooseServerScheme(supported, true), any);
      EXPECT_EQ(chooseServerScheme(supported, false), any == kBasic && !test.allowed ? std::nullopt : any);
    }
  }
}

TEST_F(AuthSchemeTest, AsksForTheSizeOfTheVariableBeforeItsValue) {
  windows.environment[kVariable] = L"yes";
  EXPECT_EQ(chooseServerScheme(kBasic, false), Scheme(kBasic));
  EXPECT_EQ(
      transcriptOf(windows),
      (std::vector<std::wstring>{L"GetEnvironmentVariableW(name=PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME, size=0)",
                                 L"GetEnvironmentVariableW(name=PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME, size=4)"}));
}

TEST_F(AuthSchemeTest, ReadsTheVariableAgainEachTime) {
  EXPECT_EQ(chooseServerScheme(kBasic, false), std::nullopt);
  windows.environment[kVariable] = L"1";
  EXPECT_EQ(chooseServerScheme(kBasic, false), Scheme(kBasic));
  windows.environment[kVariable] = L"0";
  EXPECT_EQ(chooseServerScheme(kBasic, false), std::nullopt);
  windows.environment.clear();
  EXPECT_EQ(chooseServerScheme(kBasic, false), std::nullopt);
}

TEST_F(AuthSchemeTest, TreatsAVariableThatCannotBeReadAsAbsent) {
  windows.environment[kVariable] = L"1";
  for (const std::size_t nth : {1U, 2U}) {
    windows.failNth("GetEnvironmentVariableW", nth, ERROR_GEN_FAILURE);
    EXPECT_EQ(chooseServerScheme(kBasic, false), std::nullopt);
    EXPECT_EQ(chooseServerScheme(kBasic | kDigest, false), Scheme(kDigest));
  }
}

TEST_F(AuthSchemeTest, TreatsAVariableThatGrowsWhileItIsReadAsAbsent) {
  windows.environment[kVariable] = L"1";
  windows.environmentAfterwards[kVariable] = L"a longer one";
  EXPECT_EQ(chooseServerScheme(kBasic, false), std::nullopt);
  EXPECT_EQ(chooseServerScheme(kBasic, false), Scheme(kBasic));
}

}  // namespace
}  // namespace kiv::test
