// What the picture shows when texts are long and candidates many.
#include "resolve/route_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

std::size_t count(const std::string& text, std::string_view part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

Candidate answered(int status) { return {.text = L"http://a:1", .requests = {{.status = status}}}; }

TEST(RoutePicture, LongTextsAreCutInTheBoxAndWholeInItsTitle) {
  Resolution resolution;
  resolution.settings.scriptUrl = std::wstring(200, L'x');
  const std::string picture = routePicture(resolution).html();
  EXPECT_THAT(picture, HasSubstr("<title>PAC script: " + std::string(200, 'x') + "</title>"));
  EXPECT_THAT(picture, HasSubstr("x\xE2\x80\xA6</text>"));
  EXPECT_THAT(picture, Not(HasSubstr(">" + std::string(100, 'x'))));
}

TEST(RoutePicture, OfManyCandidatesShowsTheFirstAndTheOneThatWorks) {
  Resolution resolution;
  resolution.candidates.assign(40, answered(403));
  resolution.candidates[30] = answered(200);
  const std::string picture = routePicture(resolution).html();
  EXPECT_THAT(picture, HasSubstr("30  http://a:1"));
  EXPECT_THAT(picture, HasSubstr("and 32 more"));
  EXPECT_EQ(count(picture, "class=\"step good\""), 2u) << "one in each form of the picture";
}

TEST(RoutePicture, WithoutCandidatesEndsAtTheOutcome) {
  Resolution resolution;
  resolution.bypass = {.list = L"*", .matches = true};
  resolution.outcome = {OutcomeKind::Direct, L"DIRECT"};
  EXPECT_THAT(routePicture(resolution).html(), HasSubstr("<title>DIRECT: not tested</title>"));
}

}  // namespace
}  // namespace kiv::tool
