// The words for candidates and their requests.
#include "resolve/wording.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

Candidate answered(Request request) { return {.requests = {std::move(request)}}; }

TEST(VerdictText, ExplainsTheLastResponse) {
  EXPECT_EQ(verdictText({}), L"not tested");
  EXPECT_EQ(verdictText({.invalid = true}), L"not a valid proxy");
  EXPECT_EQ(verdictText(answered({.status = 299})), L"works");
  EXPECT_EQ(verdictText(answered({.status = 300})), L"status is not 2xx");
  EXPECT_EQ(verdictText(answered({.status = 407})), L"proxy requires credentials");
  EXPECT_EQ(verdictText(answered({.error = 12007})), L"host name not found");
  EXPECT_EQ(verdictText(answered({.error = 4711})), L"no response");
  EXPECT_EQ(verdictText(answered({})), L"no response");
}

TEST(VerdictText, TellsRejectedCredentialsFromMissingOnes) {
  Candidate candidate = answered({.status = 407});
  candidate.proxyCredGiven = true;
  EXPECT_EQ(verdictText(candidate), L"proxy rejects the credentials");
  candidate.requests.push_back({.status = 401});
  EXPECT_EQ(verdictText(candidate), L"server requires credentials");
  candidate.serverCredGiven = true;
  EXPECT_EQ(verdictText(candidate), L"server rejects the credentials");
}

TEST(VerdictText, KnowsFailuresWithoutACode) {
  EXPECT_EQ(verdictText(answered({.failure = L"No supported schemes for the proxy authentication. (http://a)"})),
            L"proxy offers no usable authentication");
}

TEST(ExplanationText, NamesTheErrorOfTheLastRequest) {
  EXPECT_EQ(explanationText(answered({.error = 12029})), L"cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029)");
  EXPECT_EQ(explanationText(answered({.error = 10060})), L"timed out: WSAETIMEDOUT (10060)");
  EXPECT_EQ(explanationText(answered({.error = 4711})), L"no response: error 4711");
  EXPECT_EQ(explanationText(answered({})), L"no response");
  EXPECT_EQ(explanationText(answered({.status = 200, .error = 12029})), L"works");
  EXPECT_EQ(explanationText({}), L"not tested");
}

TEST(ResponsesText, ListsAllRequests) {
  const Candidate candidate{.requests = {{.status = 407}, {.error = 12029}, {}}};
  EXPECT_EQ(responsesText(candidate), L"407, failed, failed");
  EXPECT_EQ(responsesText({}), L"-");
  EXPECT_EQ(responseWithErrorText({.error = 12002}), L"failed: ERROR_WINHTTP_TIMEOUT (12002)");
  EXPECT_EQ(responseWithErrorText({.status = 407}), L"407");
}

TEST(TimeText, IsIso8601WithMilliseconds) {
  EXPECT_EQ(timeText(WallTime(std::chrono::milliseconds(951782399999))), L"2000-02-28T23:59:59.999Z");
}

}  // namespace
}  // namespace kiv::tool
