// The route of a resolution as a picture: settings, PAC script, bypass list, candidates.
#include "resolve/route_picture.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "resolve/wording.h"

namespace kiv::tool {
namespace {

// One step of the route. The state is a class of the style: "plain", "off", "good" or "bad".
struct Step {
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
constexpr int kCandidateDistance = 56;

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

Markup boxAt(const Box& box, const Step& step) {
  const Markup outline = element("rect",
                                 {{"x", number(box.x)},
                                  {"y", number(box.y)},
                                  {"width", number(box.width)},
                                  {"height", number(box.height)},
                                  {"rx", L"8"}},
                                 {});
  constexpr int kTitleCharacter = 8;
  constexpr int kTextCharacter = 7;
  return element("g", {{"class", std::wstring(L"step ") + step.state}},
                 element("title", step.title + L": " + step.text) + outline +
                     textAt(L"title", box, box.middle() - 4, step.title, kTitleCharacter) +
                     textAt(L"text", box, box.middle() + 14, step.text, kTextCharacter));
}

Markup edge(const std::wstring& path, const wchar_t* state) {
  return element("path", {{"class", std::wstring(L"edge ") + state}, {"d", path}}, {});
}

Step settingsStep(const UserSettings& settings) {
  std::wstring text;
  const auto add = [&](bool on, const wchar_t* name) {
    if (on) text += (text.empty() ? L"" : L", ") + std::wstring(name);
  };
  add(settings.automaticDetection, L"WPAD");
  add(!settings.scriptUrl.empty(), L"PAC script");
  add(!settings.manualList.empty(), L"manual list");
  return text.empty() ? Step{L"Settings", L"all off", L"off"} : Step{L"Settings", text};
}

Step scriptStep(const Resolution& resolution) {
  const UserSettings& settings = resolution.settings;
  if (resolution.discoveryFailed) return {L"PAC script", L"failed", L"bad"};
  if (!settings.scriptUrl.empty()) return {L"PAC script", settings.scriptUrl};
  return settings.automaticDetection ? Step{L"PAC script", L"searched with WPAD"}
                                     : Step{L"PAC script", L"none", L"off"};
}

Step bypassStep(const Bypass& bypass) {
  if (bypass.matches) return {L"Bypass list", L"matches the URL", L"good"};
  if (bypass.list.empty()) return {L"Bypass list", bypass.given ? L"switched off" : L"none", L"off"};
  return {L"Bypass list", L"does not match the URL"};
}

const wchar_t* stateOf(Verdict verdict) {
  if (verdict == Verdict::Works) return L"good";
  return verdict == Verdict::NotTested ? L"off" : L"bad";
}

Step candidateStep(std::size_t index, const Candidate& candidate) {
  return {std::to_wstring(index) + L"  " + candidate.text, verdictText(candidate), stateOf(candidate.verdict())};
}

// The ends of the route. Of many candidates the first ones and the one that works are enough to see what happened.
std::vector<Step> endsOf(const Resolution& resolution) {
  const auto& candidates = resolution.candidates;
  if (candidates.empty()) return {{resolution.outcome.text, L"not tested", L"good"}};
  std::vector<Step> ends;
  const auto winner = resolution.winner();
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (i < kMostCandidates || i == winner) ends.push_back(candidateStep(i, candidates[i]));
  }
  if (ends.size() < candidates.size()) {
    ends.push_back({L"and " + std::to_wstring(candidates.size() - ends.size()) + L" more", L"see the list", L"off"});
  }
  return ends;
}

// The part of the route that leads to all ends is good if one of them is.
const wchar_t* stateOfTrunk(const std::vector<Step>& ends) {
  const bool good = std::ranges::any_of(ends, [](const Step& end) { return std::wstring_view(end.state) == L"good"; });
  return good ? L"good" : L"plain";
}

Markup picture(const wchar_t* kind, int width, int height, const Markup& content) {
  return element("svg",
                 {{"class", std::wstring(L"route ") + kind},
                  {"viewBox", L"0 0 " + number(width) + L" " + number(height)},
                  {"role", L"img"},
                  {"aria-label", L"From the settings through the PAC script and the bypass list to the candidates"}},
                 content);
}

// From left to right; the candidates fan out at the end.
Markup widePicture(const std::vector<Step>& steps, const std::vector<Step>& ends) {
  constexpr int kWidth = 1000;
  constexpr int kStepWidth = 198;
  constexpr int kStepDistance = 230;
  constexpr int kEndX = 706;
  const int height = std::max(64, static_cast<int>(ends.size()) * kCandidateDistance - 10) + 2 * kMargin;
  Markup boxes;
  Markup edges;
  Box box{kMargin, height / 2 - 30, kStepWidth, 60};
  for (const Step& step : steps) {
    boxes += boxAt(box, step);
    if (&step == &steps.back()) break;
    edges += edge(L"M" + number(box.right()) + L"," + number(box.middle()) + L" h32", stateOfTrunk(ends));
    box.x += kStepDistance;
  }
  const int fanTop = (height - static_cast<int>(ends.size()) * kCandidateDistance + 10) / 2;
  Box end{kEndX, fanTop, kWidth - kEndX - kMargin, kCandidateHeight};
  for (const Step& step : ends) {
    const std::wstring y = number(end.middle());
    edges += edge(L"M" + number(box.right()) + L"," + number(box.middle()) + L" C" + number(box.right() + 30) + L"," +
                      number(box.middle()) + L" " + number(end.x - 30) + L"," + y + L" " + number(end.x) + L"," + y,
                  step.state);
    boxes += boxAt(end, step);
    end.y += kCandidateDistance;
  }
  return picture(L"wide", kWidth, height, edges + boxes);
}

// From top to bottom; the candidates hang on a rail.
Markup narrowPicture(const std::vector<Step>& steps, const std::vector<Step>& ends) {
  constexpr int kWidth = 340;
  constexpr int kIndent = 36;
  constexpr int kStepDistance = 76;
  Markup boxes;
  Markup edges;
  Box box{kMargin, kMargin, kWidth - 2 * kMargin, 54};
  for (const Step& step : steps) {
    boxes += boxAt(box, step);
    if (&step == &steps.back()) break;
    edges += edge(L"M18," + number(box.bottom()) + L" v22", stateOfTrunk(ends));
    box.y += kStepDistance;
  }
  Box end{kIndent, box.y + kStepDistance - 8, kWidth - kIndent - kMargin, kCandidateHeight};
  for (const Step& step : ends) {
    edges += edge(L"M18," + number(box.bottom()) + L" V" + number(end.middle()) + L" H" + number(end.x), step.state);
    boxes += boxAt(end, step);
    end.y += kCandidateDistance;
  }
  return picture(L"narrow", kWidth, end.y - kCandidateDistance + kCandidateHeight + kMargin, edges + boxes);
}

}  // namespace

Markup routePicture(const Resolution& resolution) {
  const std::vector<Step> steps = {settingsStep(resolution.settings), scriptStep(resolution),
                                   bypassStep(resolution.bypass)};
  const std::vector<Step> ends = endsOf(resolution);
  return widePicture(steps, ends) + narrowPicture(steps, ends);
}

}  // namespace kiv::tool
