// The road that a resolution took, as a picture: settings, script, bypass list, candidates.
#include "road_picture.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "wording.h"

namespace kiv::tool {
namespace {

// A stop on the road. The state is a class of the style: "plain", "off", "good" or "bad".
struct Station {
  std::wstring title;
  std::wstring text;
  const wchar_t* state = L"plain";
};

struct Box {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  int middle() const { return y + height / 2; }
  int right() const { return x + width; }
  int bottom() const { return y + height; }
};

constexpr std::size_t kMostCandidates = 7;
constexpr int kPadding = 12;
constexpr int kMargin = 2;  // for the boxes' outlines
constexpr int kCandidateHeight = 46;
constexpr int kCandidateStep = 56;

// Characters of about this width fit into a box; the whole text is the box's title.
std::wstring fitted(const std::wstring& text, const Box& box, int characterWidth) {
  const auto most = static_cast<std::size_t>((box.width - 2 * kPadding) / characterWidth);
  return text.size() <= most ? text : text.substr(0, most - 1) + L"…";
}

std::wstring number(int value) { return std::to_wstring(value); }

Markup textAt(const wchar_t* kind, const Box& box, int y, const std::wstring& text, int characterWidth) {
  return element("text", {{"class", kind}, {"x", number(box.x + kPadding)}, {"y", number(y)}},
                 fitted(text, box, characterWidth));
}

Markup stationAt(const Box& box, const Station& station) {
  const Markup outline = element("rect",
                                 {{"x", number(box.x)},
                                  {"y", number(box.y)},
                                  {"width", number(box.width)},
                                  {"height", number(box.height)},
                                  {"rx", L"8"}},
                                 {});
  constexpr int kTitleCharacter = 8;
  constexpr int kTextCharacter = 7;
  return element("g", {{"class", std::wstring(L"station ") + station.state}},
                 element("title", station.title + L": " + station.text) + outline +
                     textAt(L"title", box, box.middle() - 4, station.title, kTitleCharacter) +
                     textAt(L"text", box, box.middle() + 14, station.text, kTextCharacter));
}

Markup edge(const std::wstring& path, const wchar_t* state) {
  return element("path", {{"class", std::wstring(L"edge ") + state}, {"d", path}}, {});
}

Station settingsStation(const UserSettings& settings) {
  std::wstring text;
  const auto add = [&](bool on, const wchar_t* name) {
    if (on) text += (text.empty() ? L"" : L", ") + std::wstring(name);
  };
  add(settings.automaticDetection, L"detection");
  add(!settings.scriptUrl.empty(), L"script");
  add(!settings.manualList.empty(), L"manual list");
  return text.empty() ? Station{L"Settings", L"all off", L"off"} : Station{L"Settings", text};
}

Station scriptStation(const Resolution& resolution) {
  const UserSettings& settings = resolution.settings;
  if (resolution.discoveryFailed) return {L"Script", L"failed", L"bad"};
  if (!settings.scriptUrl.empty()) return {L"Script", settings.scriptUrl};
  return settings.automaticDetection ? Station{L"Script", L"looked for on the network"}
                                     : Station{L"Script", L"none", L"off"};
}

Station bypassStation(const Bypass& bypass) {
  if (bypass.matches) return {L"Bypass list", L"names the target", L"good"};
  if (bypass.list.empty()) return {L"Bypass list", bypass.given ? L"switched off" : L"none", L"off"};
  return {L"Bypass list", L"not for this target"};
}

const wchar_t* stateOf(Verdict verdict) {
  if (verdict == Verdict::Works) return L"good";
  return verdict == Verdict::NotTested ? L"off" : L"bad";
}

Station candidateStation(std::size_t index, const Candidate& candidate) {
  return {std::to_wstring(index) + L"  " + candidate.text, verdictText(candidate), stateOf(candidate.verdict())};
}

// Where the road ends. Of many candidates those in front and the winner are enough to see what happened.
std::vector<Station> endsOf(const Resolution& resolution) {
  const auto& candidates = resolution.candidates;
  if (candidates.empty()) return {{resolution.outcome.text, L"without a test", L"good"}};
  std::vector<Station> ends;
  const auto winner = resolution.winner();
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (i < kMostCandidates || i == winner) ends.push_back(candidateStation(i, candidates[i]));
  }
  if (ends.size() < candidates.size()) {
    ends.push_back({L"and " + std::to_wstring(candidates.size() - ends.size()) + L" more", L"see the list", L"off"});
  }
  return ends;
}

// The way to all ends is good if one of them is.
const wchar_t* stateOfWay(const std::vector<Station>& ends) {
  const bool good =
      std::ranges::any_of(ends, [](const Station& end) { return std::wstring_view(end.state) == L"good"; });
  return good ? L"good" : L"plain";
}

Markup picture(const wchar_t* kind, int width, int height, const Markup& content) {
  return element("svg",
                 {{"class", std::wstring(L"road ") + kind},
                  {"viewBox", L"0 0 " + number(width) + L" " + number(height)},
                  {"role", L"img"},
                  {"aria-label", L"From the settings over the script and the bypass list to the candidates"}},
                 content);
}

// From left to right; the candidates fan out at the end.
Markup widePicture(const std::vector<Station>& stations, const std::vector<Station>& ends) {
  constexpr int kWidth = 1000;
  constexpr int kStationWidth = 198;
  constexpr int kStationStep = 230;
  constexpr int kEndX = 706;
  const int height = std::max(64, static_cast<int>(ends.size()) * kCandidateStep - 10) + 2 * kMargin;
  Markup boxes;
  Markup edges;
  Box box{kMargin, height / 2 - 30, kStationWidth, 60};
  for (const Station& station : stations) {
    boxes += stationAt(box, station);
    if (&station == &stations.back()) break;
    edges += edge(L"M" + number(box.right()) + L"," + number(box.middle()) + L" h32", stateOfWay(ends));
    box.x += kStationStep;
  }
  const int fanTop = (height - static_cast<int>(ends.size()) * kCandidateStep + 10) / 2;
  Box end{kEndX, fanTop, kWidth - kEndX - kMargin, kCandidateHeight};
  for (const Station& station : ends) {
    const std::wstring y = number(end.middle());
    edges += edge(L"M" + number(box.right()) + L"," + number(box.middle()) + L" C" + number(box.right() + 30) + L"," +
                      number(box.middle()) + L" " + number(end.x - 30) + L"," + y + L" " + number(end.x) + L"," + y,
                  station.state);
    boxes += stationAt(end, station);
    end.y += kCandidateStep;
  }
  return picture(L"wide", kWidth, height, edges + boxes);
}

// From top to bottom; the candidates hang on a rail.
Markup narrowPicture(const std::vector<Station>& stations, const std::vector<Station>& ends) {
  constexpr int kWidth = 340;
  constexpr int kIndent = 36;
  constexpr int kStationStep = 76;
  Markup boxes;
  Markup edges;
  Box box{kMargin, kMargin, kWidth - 2 * kMargin, 54};
  for (const Station& station : stations) {
    boxes += stationAt(box, station);
    if (&station == &stations.back()) break;
    edges += edge(L"M18," + number(box.bottom()) + L" v22", stateOfWay(ends));
    box.y += kStationStep;
  }
  Box end{kIndent, box.y + kStationStep - 8, kWidth - kIndent - kMargin, kCandidateHeight};
  for (const Station& station : ends) {
    edges += edge(L"M18," + number(box.bottom()) + L" V" + number(end.middle()) + L" H" + number(end.x), station.state);
    boxes += stationAt(end, station);
    end.y += kCandidateStep;
  }
  return picture(L"narrow", kWidth, end.y - kCandidateStep + kCandidateHeight + kMargin, edges + boxes);
}

}  // namespace

Markup roadPicture(const Resolution& resolution) {
  const std::vector<Station> stations = {settingsStation(resolution.settings), scriptStation(resolution),
                                         bypassStation(resolution.bypass)};
  const std::vector<Station> ends = endsOf(resolution);
  return widePicture(stations, ends) + narrowPicture(stations, ends);
}

}  // namespace kiv::tool
