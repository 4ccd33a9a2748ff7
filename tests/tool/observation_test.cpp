// What a watch tells of resolutions that follow each other.
#include "watch/observation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace kiv::tool {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr WallTime kBegin{};

Resolution resolutionAt(std::chrono::seconds when, OutcomeKind kind, const wchar_t* text) {
  Resolution resolution;
  resolution.url = L"http://x/";
  resolution.began = kBegin + when;
  resolution.outcome = {kind, text};
  return resolution;
}
Resolution directAt(std::chrono::seconds when) { return resolutionAt(when, OutcomeKind::Direct, L"DIRECT"); }
Resolution noneAt(std::chrono::seconds when) { return resolutionAt(when, OutcomeKind::None, L"NONE"); }

TEST(SpanText, HasTheTwoLargestUnits) {
  const std::pair<milliseconds, const wchar_t*> spans[] = {
      {0ms, L"0 s"},
      {59'999ms, L"59 s"},
      {60s, L"1 min 0 s"},
      {670s, L"11 min 10 s"},
      {3h + 5min + 59s, L"3 h 5 min"},
      {52h + 30min, L"2 d 4 h"},
  };
  for (const auto& [span, text] : spans) EXPECT_EQ(spanText(span), text);
}

TEST(DifferencesBetween, NamesWhatChanged) {
  Resolution before = directAt(0s);
  Resolution now = noneAt(1s);
  before.settings.automaticDetection = true;
  before.settings.manualList = L"a:1";
  now.settings.scriptUrl = L"http://s/";
  now.settings.manualList = L"b:1";
  before.bypass.matches = true;
  now.discoveryFailed = true;
  now.candidates.push_back({.text = L"http://b:1"});
  EXPECT_THAT(
      differencesBetween(before, now),
      ElementsAre(L"automatic detection (WPAD): on -> off", L"PAC script: none -> http://s/",
                  L"manual proxy list: a:1 -> b:1", L"bypass list and URL: matches -> does not match",
                  L"discovery: succeeded -> failed", L"outcome: DIRECT -> NONE", L"candidates: none -> http://b:1"));
}

TEST(DifferencesBetween, TellsWhatACandidateAnswersNow) {
  Resolution before = noneAt(0s);
  Resolution now = noneAt(1s);
  before.candidates.push_back({.text = L"http://a:1", .requests = {{.status = 200}}});
  now.candidates.push_back({.text = L"http://a:1", .requests = {{.error = 12029}}});
  EXPECT_THAT(differencesBetween(before, now),
              ElementsAre(L"http://a:1: works -> cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029)"));
}

TEST(DifferencesBetween, DurationsAreNone) {
  Resolution now = directAt(9s);
  now.duration = now.discoveryDuration = 5s;
  EXPECT_THAT(differencesBetween(directAt(0s), now), IsEmpty());
}

TEST(Watch, SaysWhyTheUrlWasResolvedAgain) {
  Watch watch;
  EXPECT_EQ(watch.observe(directAt(0s), false).change, ChangeKind::Start);
  EXPECT_EQ(watch.observe(directAt(1s), true).change, ChangeKind::Network);
  EXPECT_EQ(watch.observe(directAt(2s), false).change, ChangeKind::Time);
  Resolution changed = directAt(3s);
  changed.settings.bypassList = L"*.corp";
  EXPECT_EQ(watch.observe(changed, true).change, ChangeKind::Settings);
}

TEST(Watch, KnowsSinceWhenAnOutcomeIsTheSame) {
  Watch watch;
  watch.observe(noneAt(0s), false);
  const Observation recovered = watch.observe(directAt(100s), false);
  EXPECT_EQ(recovered.since, kBegin + 100s);
  EXPECT_EQ(recovered.formerText, L"NONE");
  EXPECT_EQ(recovered.formerDuration, 100s);
  const Observation later = watch.observe(directAt(130s), false);
  EXPECT_EQ(later.since, kBegin + 100s);
  EXPECT_EQ(later.formerText, std::nullopt);
}

TEST(Watch, CountsFromTheEndOfAResolution) {
  Watch watch;
  Resolution slow = directAt(10s);
  slow.duration = 5s;
  EXPECT_EQ(watch.observe(slow, false).since, kBegin + 15s);
}

TEST(Watch, AClockThatIsSetBackGivesNoNegativeTimes) {
  Watch watch;
  watch.observe(noneAt(100s), false);
  EXPECT_EQ(watch.observe(directAt(1s), false).formerDuration, 0s);
}

TEST(ObservationLine, IsOneLine) {
  Watch watch;
  EXPECT_EQ(observationLine(watch.observe(directAt(0s), false)), L"1970-01-01T00:00:00.000Z  start     DIRECT\n");
  EXPECT_EQ(
      observationLine(watch.observe(directAt(61s), true)),
      L"1970-01-01T00:01:01.000Z  network   DIRECT  same as before, since 1970-01-01T00:00:00.000Z (1 min 1 s)\n");
  Resolution none = noneAt(62s);
  none.candidates.push_back({.text = L"http://a:1", .requests = {{.error = 12029}}});
  EXPECT_EQ(
      observationLine(watch.observe(none, false)),
      L"1970-01-01T00:01:02.000Z  time      NONE (http://a:1 cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029))"
      L"  before: DIRECT for 1 min 2 s; outcome: DIRECT -> NONE; candidates: none -> http://a:1\n");
}

TEST(ObservationLine, TellsOfOtherCandidatesForTheSameOutcome) {
  Watch watch;
  watch.observe(directAt(0s), false);
  Resolution other = directAt(5s);
  other.candidates.push_back({.text = L"DIRECT"});
  EXPECT_THAT(observationLine(watch.observe(other, false)),
              HasSubstr(L"same outcome, since 1970-01-01T00:00:00.000Z (5 s); candidates: none -> DIRECT"));
}

TEST(ObservationJson, IsOneLineWithTheFormerOutcome) {
  Watch watch;
  watch.observe(noneAt(0s), false);
  const std::string line = observationJson(watch.observe(directAt(2s), true));
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_EQ(json::parse(line), json::parse(R"({
      "time": "1970-01-01T00:00:02.000Z", "url": "http://x/", "change": "network",
      "outcome": {"kind": "direct", "text": "DIRECT"}, "since": "1970-01-01T00:00:02.000Z",
      "differences": ["outcome: NONE -> DIRECT"], "before": {"text": "NONE", "milliseconds": 2000}})"));
}

}  // namespace
}  // namespace kiv::tool
