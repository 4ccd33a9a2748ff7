// What follows from what Windows says of certificates.
#include "probe/certificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "resolve/resolution_probe.h"

namespace kiv::tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(RootOf, IsInstalledIfItIsTrustedAndWindowsDoesNotDistributeIt) {
  EXPECT_EQ(rootOf({.isComplete = true, .isTrusted = true, .isDistributed = true}), Root::Public);
  EXPECT_EQ(rootOf({.isComplete = true, .isTrusted = true, .isDistributed = false}), Root::Installed);
  EXPECT_EQ(rootOf({.isComplete = true, .isTrusted = false, .isDistributed = true}), Root::Untrusted);
  EXPECT_EQ(rootOf({.isComplete = true, .isTrusted = false, .isDistributed = false}), Root::Untrusted);
  EXPECT_EQ(rootOf({.isComplete = false, .isTrusted = true, .isDistributed = false}), Root::Missing);
}

TEST(ProblemsOf, AreTheFlagsOfWinHttp) {
  struct Case {
    DWORD errors;
    bool otherHost;
    unsigned problems;
  };
  const Case cases[] = {
      {CERT_TRUST_NO_ERROR, false, 0},
      {CERT_TRUST_NO_ERROR, true, WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID},
      {CERT_TRUST_IS_UNTRUSTED_ROOT, false, WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA},
      {CERT_TRUST_IS_PARTIAL_CHAIN, false, WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA},
      {CERT_TRUST_IS_NOT_TIME_VALID, false, WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID},
      {CERT_TRUST_IS_REVOKED, false, WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED},
      {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, false, WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE},
      {CERT_TRUST_IS_NOT_SIGNATURE_VALID, false, WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT},
      {CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_IS_UNTRUSTED_ROOT, true,
       WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID | WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA |
           WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID},
  };
  for (const Case& each : cases) EXPECT_EQ(problemsOf(each.errors, each.otherHost), each.problems) << each.errors;
}

TEST(InspectedHosts, HaveAnInstalledRootOnOneRouteAndAPublicOneOnAnother) {
  EXPECT_THAT(inspectedHosts({{L"a", Root::Installed}, {L"a", Root::Public}}), ElementsAre(L"a"));
  EXPECT_THAT(inspectedHosts({{L"a", Root::Public}, {L"a", Root::Installed}, {L"a", Root::Installed}}),
              ElementsAre(L"a"));
}

TEST(InspectedHosts, AreNotThoseOfWhichLessIsKnown) {
  EXPECT_THAT(inspectedHosts({}), IsEmpty());
  EXPECT_THAT(inspectedHosts({{L"a", Root::Installed}}), IsEmpty()) << "an intranet's server is not inspected";
  EXPECT_THAT(inspectedHosts({{L"a", Root::Installed}, {L"b", Root::Public}}), IsEmpty()) << "two hosts";
  EXPECT_THAT(inspectedHosts({{L"a", Root::Public}, {L"a", Root::Public}}), IsEmpty());
  EXPECT_THAT(inspectedHosts({{L"a", Root::Installed}, {L"a", Root::Installed}}), IsEmpty());
  EXPECT_THAT(inspectedHosts({{L"a", Root::Untrusted}, {L"a", Root::Public}}), IsEmpty());
  EXPECT_THAT(inspectedHosts({{L"a", Root::Missing}, {L"a", Root::Public}}), IsEmpty());
}

Resolution withCertificates(std::vector<Certificate> certificates) {
  Resolution resolution;
  resolution.probe.emplace();
  for (Certificate& certificate : certificates) {
    resolution.probe->routes.push_back({.route = L"DIRECT", .certificate = std::move(certificate)});
  }
  return resolution;
}

TEST(FindInspection, ComparesIssuersOfNobody) {
  std::vector<Resolution> resolutions;
  resolutions.push_back(withCertificates({{.host = L"a", .issuer = L"CN=One", .root = Root::Public},
                                          {.host = L"a", .issuer = L"CN=Other", .root = Root::Public}}));
  findInspection(resolutions);
  EXPECT_FALSE(resolutions[0].probe->inspectionLikely);
}

TEST(FindInspection, SeesTheRoutesOfAllUrlsOfAHost) {
  std::vector<Resolution> resolutions;
  resolutions.push_back(withCertificates({{.host = L"a", .root = Root::Public}}));
  resolutions.push_back(withCertificates({{.host = L"a", .root = Root::Installed}}));
  resolutions.push_back(withCertificates({{.host = L"b", .root = Root::Installed}}));
  resolutions.emplace_back();
  findInspection(resolutions);
  EXPECT_TRUE(resolutions[0].probe->inspectionLikely);
  EXPECT_TRUE(resolutions[1].probe->inspectionLikely);
  EXPECT_FALSE(resolutions[2].probe->inspectionLikely);
}

}  // namespace
}  // namespace kiv::tool
