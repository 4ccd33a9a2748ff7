// What is said of a candidate.
#include "wording.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

Candidate answered(Request request) { return {.requests = {std::move(request)}}; }

TEST(VerdictText, ExplainsTheLastAnswer) {
  EXPECT_EQ(verdictText({}), L"not tested");
  EXPECT_EQ(verdictText({.invalid = true}), L"not a proxy that can be tried");
  EXPECT_EQ(verdictText(answered({.status = 299})), L"works");
  EXPECT_EQ(verdictText(answered({.status = 300})), L"answers, but without success");
  EXPECT_EQ(verdictText(answered({.status = 407})), L"proxy wants credentials");
  EXPECT_EQ(verdictText(answered({.error = 12007})), L"name not known");
  EXPECT_EQ(verdictText(answered({.error = 4711})), L"no answer");
  EXPECT_EQ(verdictText(answered({})), L"no answer");
}

TEST(VerdictText, TellsRefusedCredentialsFromMissingOnes) {
  Candidate candidate = answered({.status = 407});
  candidate.proxyCredGiven = true;
  EXPECT_EQ(verdictText(candidate), L"proxy refuses the credentials");
  candidate.requests.push_back({.status = 401});
  EXPECT_EQ(verdictText(candidate), L"server wants credentials");
  candidate.serverCredGiven = true;
  EXPECT_EQ(verdictText(candidate), L"server refuses the credentials");
}

TEST(VerdictText, KnowsFailuresWithoutACode) {
  EXPECT_EQ(verdictText(answered({.failure = L"No supported schemes for the proxy authentication. (http://a)"})),
            L"proxy offers no usable authentication");
}

TEST(AnswersText, ListsAllRequests) {
  const Candidate candidate{.requests = {{.status = 407}, {.error = 12029}, {}}};
  EXPECT_EQ(answersText(candidate), L"407, failed (12029), failed");
  EXPECT_EQ(answersText({}), L"-");
}

TEST(TimeText, IsIso8601WithMilliseconds) {
  EXPECT_EQ(timeText(WallTime(std::chrono::milliseconds(951782399999))), L"2000-02-28T23:59:59.999Z");
}

}  // namespace
}  // namespace kiv::tool
