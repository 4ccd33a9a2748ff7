// What a watch tells: each resolution beside the one before.
#include "watch/observation.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "common/console.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

struct ChangeWords {
  const char* id;
  const wchar_t* column;  // all of one width
};

// In the order of the enumerators.
constexpr std::array<ChangeWords, 4> kChanges = {
    {{"start", L"start   "}, {"settings", L"settings"}, {"network", L"network "}, {"time", L"time    "}}};

const ChangeWords& wordsFor(ChangeKind change) { return kChanges[static_cast<std::size_t>(change)]; }

struct SettingText {
  const wchar_t* name;
  std::wstring UserSettings::*text;
};

constexpr SettingText kTexts[] = {
    {L"PAC script", &UserSettings::scriptUrl},
    {L"manual proxy list", &UserSettings::manualList},
    {L"bypass list", &UserSettings::bypassList},
};

std::wstring change(const std::wstring& what, const std::wstring& before, const std::wstring& now) {
  const auto orNone = [](const std::wstring& text) { return text.empty() ? L"none" : text; };
  return what + L": " + orNone(before) + L" -> " + orNone(now);
}

void addSettings(std::vector<std::wstring>& differences, const UserSettings& before, const UserSettings& now) {
  const auto onOrOff = [](bool on) { return on ? L"on" : L"off"; };
  if (before.automaticDetection != now.automaticDetection) {
    differences.push_back(
        change(L"automatic detection (WPAD)", onOrOff(before.automaticDetection), onOrOff(now.automaticDetection)));
  }
  for (const auto& [name, text] : kTexts) {
    if (before.*text != now.*text) differences.push_back(change(name, before.*text, now.*text));
  }
}

std::wstring candidatesText(const Resolution& resolution) {
  std::wstring text;
  for (const Candidate& candidate : resolution.candidates) text += (text.empty() ? L"" : L", ") + candidate.text;
  return text;
}

void addCandidates(std::vector<std::wstring>& differences, const Resolution& before, const Resolution& now) {
  const std::wstring former = candidatesText(before);
  const std::wstring present = candidatesText(now);
  if (former != present) {
    differences.push_back(change(L"candidates", former, present));
    return;
  }
  for (std::size_t i = 0; i < now.candidates.size(); ++i) {
    const std::wstring was = explanationText(before.candidates[i]);
    const std::wstring is = explanationText(now.candidates[i]);
    if (was != is) differences.push_back(change(now.candidates[i].text, was, is));
  }
}

bool sameSettings(const UserSettings& before, const UserSettings& now) {
  std::vector<std::wstring> differences;
  addSettings(differences, before, now);
  return differences.empty();
}

ChangeKind changeBetween(const Resolution& before, const Resolution& now, bool notified) {
  if (!sameSettings(before.settings, now.settings)) return ChangeKind::Settings;
  return notified ? ChangeKind::Network : ChangeKind::Time;
}

// What each candidate answered, if none works.
std::wstring explanationOf(const Resolution& resolution) {
  if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) return kNotCompleted;
  if (resolution.outcome.kind != OutcomeKind::None) return {};
  std::wstring text;
  for (const Candidate& candidate : resolution.candidates) {
    text += (text.empty() ? L"" : L"; ") + candidate.text + L" " + explanationText(candidate);
  }
  return text;
}

milliseconds between(WallTime before, WallTime now) {
  return std::max(std::chrono::duration_cast<milliseconds>(now - before), milliseconds::zero());
}

// What is told of the resolution before.
std::wstring comparisonText(const Observation& observation) {
  if (observation.change == ChangeKind::Start) return {};
  if (observation.differences.empty()) {
    return L"same as before, since " + timeText(observation.since) + L" (" +
           spanText(between(observation.since, observation.time)) + L")";
  }
  std::wstring text = observation.formerText
                          ? L"before: " + *observation.formerText + L" for " + spanText(observation.formerDuration)
                          : L"same outcome, since " + timeText(observation.since) + L" (" +
                                spanText(between(observation.since, observation.time)) + L")";
  for (const std::wstring& difference : observation.differences) text += L"; " + difference;
  return text;
}

}  // namespace

std::vector<std::wstring> differencesBetween(const Resolution& before, const Resolution& now) {
  std::vector<std::wstring> differences;
  addSettings(differences, before.settings, now.settings);
  if (before.bypass.matches != now.bypass.matches) {
    const auto words = [](bool matches) { return matches ? L"matches" : L"does not match"; };
    differences.push_back(change(L"bypass list and URL", words(before.bypass.matches), words(now.bypass.matches)));
  }
  if (before.discoveryFailed != now.discoveryFailed) {
    const auto words = [](bool failed) { return failed ? L"failed" : L"succeeded"; };
    differences.push_back(change(L"discovery", words(before.discoveryFailed), words(now.discoveryFailed)));
  }
  if (before.outcome.text != now.outcome.text) {
    differences.push_back(change(L"outcome", before.outcome.text, now.outcome.text));
  }
  addCandidates(differences, before, now);
  return differences;
}

Observation Watch::observe(const Resolution& now, bool notified) {
  Observation observation{.time = now.began + now.duration, .url = now.url, .outcome = now.outcome};
  observation.explanation = explanationOf(now);
  if (before_) {
    observation.change = changeBetween(*before_, now, notified);
    observation.differences = differencesBetween(*before_, now);
  }
  if (!before_ || before_->outcome.text != now.outcome.text) {
    if (before_) {
      observation.formerText = before_->outcome.text;
      observation.formerDuration = between(since_, observation.time);
    }
    since_ = observation.time;
  }
  observation.since = since_;
  before_ = now;
  return observation;
}

std::wstring spanText(milliseconds span) {
  struct Unit {
    std::int64_t seconds;
    const wchar_t* name;
  };
  constexpr std::array<Unit, 4> kUnits = {{{86'400, L" d"}, {3'600, L" h"}, {60, L" min"}, {1, L" s"}}};
  const std::int64_t seconds = std::chrono::floor<std::chrono::seconds>(span).count();
  std::size_t largest = 0;
  while (largest + 1 < kUnits.size() && seconds < kUnits[largest].seconds) ++largest;
  std::wstring text = std::to_wstring(seconds / kUnits[largest].seconds) + kUnits[largest].name;
  if (largest + 1 < kUnits.size()) {
    const Unit& next = kUnits[largest + 1];
    text += L" " + std::to_wstring(seconds % kUnits[largest].seconds / next.seconds) + next.name;
  }
  return text;
}

std::wstring observationLine(const Observation& observation) {
  std::wstring line =
      timeText(observation.time) + L"  " + wordsFor(observation.change).column + L"  " + observation.outcome.text;
  if (!observation.explanation.empty()) line += L" (" + observation.explanation + L")";
  const std::wstring comparison = comparisonText(observation);
  if (!comparison.empty()) line += L"  " + comparison;
  return line + L"\n";
}

std::string observationJson(const Observation& observation) {
  Json differences = Json::array();
  for (const std::wstring& difference : observation.differences) differences.push_back(toUtf8(difference));
  Json json = {{"time", toUtf8(timeText(observation.time))},
               {"url", toUtf8(observation.url)},
               {"change", wordsFor(observation.change).id},
               {"outcome", {{"kind", idOf(observation.outcome.kind)}, {"text", toUtf8(observation.outcome.text)}}},
               {"since", toUtf8(timeText(observation.since))},
               {"differences", differences}};
  if (!observation.explanation.empty()) json["explanation"] = toUtf8(observation.explanation);
  if (observation.formerText) {
    json["before"] = {{"text", toUtf8(*observation.formerText)}, {"milliseconds", observation.formerDuration.count()}};
  }
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kiv::tool
