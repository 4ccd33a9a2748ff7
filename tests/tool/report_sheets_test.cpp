// What reports say about a resolution, for findings that no real server in Wine gives.
#include "resolve/report_sheets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <winhttp.h>

#include "resolve/bypass_entry.h"
#include "resolve/text_report.h"

namespace kiv::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

Resolution probed(RouteFindings route) {
  Resolution resolution;
  resolution.probe.emplace().routes.push_back(std::move(route));
  return resolution;
}

TEST(ResponseText, NamesTheHostThatAnsweredIfItIsAnother) {
  EXPECT_EQ(responseText({.route = L"DIRECT", .status = 200, .host = L"a", .finalHost = L"a"}), L"200");
  EXPECT_EQ(responseText({.route = L"DIRECT", .status = 200, .host = L"a", .finalHost = L"portal.example"}),
            L"200, but from portal.example");
  EXPECT_EQ(responseText({.route = L"DIRECT", .status = 404, .host = L"a"}), L"404");
  EXPECT_EQ(responseText({.route = L"DIRECT", .error = 12002}), L"failed: ERROR_WINHTTP_TIMEOUT (12002)");
}

TEST(ProbeText, HasAddressesOfBothFamilies) {
  RouteFindings route{.route = L"http://gate:8080", .status = 200};
  route.addresses = {.host = L"gate", .ipv4 = {L"192.0.2.1", L"192.0.2.2"}, .ipv6 = {L"2001:db8::1"}};
  EXPECT_THAT(probeText(probed(route)), HasSubstr(L"Addresses  gate: 192.0.2.1, 192.0.2.2, 2001:db8::1\n"));
}

TEST(ProbeText, NamesTheErrorOfALookUp) {
  RouteFindings route{.route = L"http://gate:8080", .error = 12007};
  route.addresses = {.host = L"gate", .ipv4 = {}, .ipv6 = {}, .error = 11001};
  EXPECT_THAT(probeText(probed(route)), HasSubstr(L"Addresses  gate: none, error 11001\n"));
}

TEST(ProbeText, GivesReasonsAndNoBareCodesForARefusedCertificate) {
  constexpr unsigned kProblems = WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED |
                                 WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID |
                                 WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE;
  RouteFindings route{.route = L"DIRECT", .error = 12175};
  route.certificate = Certificate{.host = L"a", .problems = kProblems, .refused = true};
  const std::wstring text = probeText(probed(route));
  EXPECT_THAT(text, HasSubstr(L"Problems  revoked, out of date, not for servers\n"));
  EXPECT_THAT(text, HasSubstr(L"Root      not known: the chain is not complete\n"));
  EXPECT_THAT(text, HasSubstr(L"closed before anything was sent"));
}

TEST(ProbeText, TellsWindowsOwnLogOnFromGivenCredentials) {
  RouteFindings route{.route = L"http://gate:8080", .status = 200};
  route.challenges = {{.byProxy = true,
                       .offered = WINHTTP_AUTH_SCHEME_NEGOTIATE | WINHTTP_AUTH_SCHEME_BASIC,
                       .used = WINHTTP_AUTH_SCHEME_NEGOTIATE,
                       .asLoggedOnUser = true,
                       .accepted = true},
                      {.offered = 0}};
  const std::wstring text = probeText(probed(route));
  EXPECT_THAT(text, HasSubstr(L"Proxy (407)   offers Negotiate, Basic\n"));
  EXPECT_THAT(text, HasSubstr(L"Used          Negotiate as the logged-on user: accepted\n"));
  EXPECT_THAT(text, HasSubstr(L"Server (401)  offers no scheme that WinHTTP knows\n"));
  EXPECT_THAT(text, HasSubstr(L"Used          not answered\n"));
}

TEST(ProbeText, IsBrokenIntoLinesThatCanBeRead) {
  Resolution resolution = probed({.route = L"DIRECT", .status = 200});
  resolution.bypass.matches = true;
  std::wstring text = probeText(resolution);
  EXPECT_THAT(text, HasSubstr(L"What to try next"));
  EXPECT_THAT(text, Not(HasSubstr(L"`")));
  while (!text.empty()) {
    const std::size_t end = text.find(L'\n');
    EXPECT_LE(end, 100u);
    text.erase(0, end + 1);
  }
}

TEST(ProbeSheets, AreNoneWithoutAProbe) { EXPECT_TRUE(probeSheets({}).empty()); }

TEST(MatchingEntry, IsTheFirstThatMatches) {
  EXPECT_EQ(matchingEntry(L"*.corp; a.*;a.test", L"http://a.test/x"), L"a.*");
  EXPECT_EQ(matchingEntry(L"<local>", L"http://intranet/"), L"<local>");
  EXPECT_EQ(matchingEntry(L"https://a.test;a.test:81;b", L"http://a.test/"), L"");
  EXPECT_EQ(matchingEntry(L"", L"http://a/"), L"");
}

}  // namespace
}  // namespace kiv::tool
