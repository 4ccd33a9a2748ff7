// Which facts are read from the library's lines, and which lines are not mistaken for them.
#include "resolve/log_facts.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

constexpr const wchar_t* kUrl = L"http://x/";

struct Case {
  const wchar_t* message;
  FactKind kind;
  std::size_t number = 0;
  const wchar_t* text = L"";
};

TEST(FactOf, ReadsTheLinesThatMatter) {
  constexpr Case kCases[] = {
      {L"lorvResolveProxy() returned error status.", FactKind::DiscoveryFailed},
      {L"Proxy bypass list: *.a;b", FactKind::BypassList, 0, L"*.a;b"},
      {L"http://x/ is matched to the bypass list (*.a;b). Use direct connection.", FactKind::Bypassed},
      {L"No. 0: Direct connection", FactKind::Attempt, 0},
      {L"No. 12: Proxy http://a:1", FactKind::Attempt, 12},
      {L"No. 3: Invalid proxy", FactKind::InvalidCandidate, 3},
      {L"No. 3: Proxy authentication required.", FactKind::Attempt, 3},
  };
  for (const Case& expected : kCases) {
    const LogFact fact = factOf(expected.message, kUrl);
    EXPECT_EQ(fact.kind, expected.kind) << expected.message;
    EXPECT_EQ(fact.number, expected.number);
    EXPECT_EQ(fact.text, expected.text);
  }
}

TEST(FactOf, PassesOverOtherLines) {
  constexpr const wchar_t* kOthers[] = {
      L"",
      L"BEGIN: ProxyResolver",
      L"No. ",
      L"No. x: Invalid proxy",
      L"No. 1 Invalid proxy",
      L"No. 99999999999999999999: Invalid proxy",
      L"http://y/ is matched to the bypass list (*). Use direct connection.",
      L"Response Header: No. 1: Invalid proxy",
      L"No available proxy found.",
  };
  for (const wchar_t* const message : kOthers) EXPECT_EQ(factOf(message, kUrl).kind, FactKind::Other) << message;
}

TEST(ErrorCodeOf, StandsAtTheEndOfALineAboutAFailure) {
  EXPECT_EQ(errorCodeOf(L"WinHttpSendRequest() failed. ErrorCode = 12029"), 12029u);
  EXPECT_EQ(errorCodeOf(L"WinHttpSendRequest() failed. ErrorCode = "), std::nullopt);
  EXPECT_EQ(errorCodeOf(L"WinHttpSendRequest() failed. ErrorCode = 12029 or so"), std::nullopt);
  EXPECT_EQ(errorCodeOf(L"Invalid client."), std::nullopt);
}

}  // namespace
}  // namespace kiv::tool
