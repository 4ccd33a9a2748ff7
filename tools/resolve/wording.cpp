// The words for results, which the table, the JSON document and the report share.
#include "resolve/wording.h"

#include <algorithm>
#include <array>
#include <cwchar>

#include "resolve/failures.h"

namespace kiv::tool {
namespace {

struct VerdictWords {
  std::string_view id;
  std::wstring_view text;
};

// In the order of the enumerators, as all tables here.
constexpr std::array<VerdictWords, 7> kVerdicts = {{
    {"works", L"works"},
    {"proxy-wants-credentials", L"proxy requires credentials"},
    {"server-wants-credentials", L"server requires credentials"},
    {"no-success", L"status is not 2xx"},
    {"no-answer", L"no response"},
    {"invalid", L"not a valid proxy"},
    {"not-tested", L"not tested"},
}};

constexpr std::array<std::string_view, 3> kOriginIds = {"preferred", "system", "fallback"};
constexpr std::array<std::wstring_view, 3> kOriginTexts = {L"from --prefer", L"from the settings", L"from --fallback"};
constexpr std::array<std::string_view, 6> kOutcomeIds = {"proxy",      "direct",          "none",
                                                         "not-tested", "not-carried-out", "stopped"};
constexpr std::array<std::wstring_view, 6> kOutcomeTexts = {L"Route found", L"Route found",   L"No route found",
                                                            L"Not tested",  L"Not completed", L"Stopped"};
constexpr std::array<std::string_view, 4> kLevelIds = {"error", "warn", "info", "debug"};

template <class Table, class Enumerator>
const auto& at(const Table& table, Enumerator enumerator) {
  return table[static_cast<std::size_t>(enumerator)];
}

std::wstring errorSuffix(const Request& request) {
  return request.status < 0 && request.error ? L": " + errorText(*request.error) : std::wstring();
}

std::wstring bypassRemark(const Bypass& bypass) {
  return L"The bypass list (" + bypass.list + L") matches the URL: direct connection, not tested.";
}

}  // namespace

std::string_view idOf(Verdict verdict) { return at(kVerdicts, verdict).id; }
std::string_view idOf(Origin origin) { return at(kOriginIds, origin); }
std::string_view idOf(OutcomeKind kind) { return at(kOutcomeIds, kind); }
std::string_view idOf(LogLevel level) { return at(kLevelIds, level); }
std::wstring_view originText(Origin origin) { return at(kOriginTexts, origin); }

std::wstring verdictText(const Candidate& candidate) {
  const Verdict verdict = candidate.verdict();
  if (verdict == Verdict::ProxyWantsCredentials && candidate.proxyCredGiven) return L"proxy rejects the credentials";
  if (verdict == Verdict::ServerWantsCredentials && candidate.serverCredGiven) return L"server rejects the credentials";
  const std::wstring_view meaning = verdict == Verdict::NoAnswer ? meaningOf(candidate.requests.back()) : L"";
  return std::wstring(meaning.empty() ? at(kVerdicts, verdict).text : meaning);
}

std::wstring explanationText(const Candidate& candidate) {
  return verdictText(candidate) + (candidate.requests.empty() ? L"" : errorSuffix(candidate.requests.back()));
}

std::wstring responseText(const Request& request) {
  return request.status >= 0 ? std::to_wstring(request.status) : L"failed";
}

std::wstring responseWithErrorText(const Request& request) { return responseText(request) + errorSuffix(request); }

std::wstring responsesText(const Candidate& candidate) {
  if (candidate.requests.empty()) return L"-";
  std::wstring text;
  for (const Request& request : candidate.requests) text += (text.empty() ? L"" : L", ") + responseText(request);
  return text;
}

std::wstring durationText(milliseconds duration) { return std::to_wstring(duration.count()) + L" ms"; }

std::wstring timeText(WallTime time) {
  const auto whole = std::chrono::floor<std::chrono::milliseconds>(time);
  const auto day = std::chrono::floor<std::chrono::days>(whole);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(whole - day);
  std::array<wchar_t, 32> text{};
  const int length =
      std::swprintf(text.data(), text.size(), L"%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                    static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                    static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                    static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::wstring remark(const Resolution& resolution) {
  if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) return kNotCompleted;
  if (resolution.outcome.kind == OutcomeKind::Stopped) {
    return L"Stopped after " + durationText(resolution.duration) + L" (--max-time).";
  }
  if (resolution.bypass.matches) return bypassRemark(resolution.bypass);
  if (resolution.discoveryFailed)
    return L"Discovery failed: automatic detection (WPAD), the PAC script or the settings gave an error. No candidate "
           L"is "
           L"from the settings.";
  if (resolution.candidates.empty()) return L"No proxy is configured for this URL: direct connection, not tested.";
  return {};
}

std::wstring_view outcomeText(OutcomeKind kind) { return at(kOutcomeTexts, kind); }

std::wstring counted(std::size_t count, const wchar_t* noun) {
  return std::to_wstring(count) + L" " + noun + (count == 1 ? L"" : L"s");
}

std::size_t testedCount(const Resolution& resolution) {
  return static_cast<std::size_t>(std::ranges::count_if(
      resolution.candidates, [](const Candidate& candidate) { return !candidate.requests.empty(); }));
}

std::wstring reasonText(const Resolution& resolution) {
  const std::wstring remarked = remark(resolution);
  if (resolution.candidates.empty()) return remarked;
  const std::wstring count = counted(resolution.candidates.size(), L"candidate");
  std::wstring reason;
  if (const auto winner = resolution.winner()) {
    reason = L"Candidate No. " + std::to_wstring(*winner) + L" works. " + count + L", " +
             std::to_wstring(testedCount(resolution)) + L" tested.";
  } else if (resolution.outcome.kind == OutcomeKind::NotTested) {
    reason = count + L", none tested, as requested.";
  } else {
    reason = counted(testedCount(resolution), L"candidate") + L" tested, none works.";
  }
  return remarked.empty() ? reason : reason + L" " + remarked;
}

}  // namespace kiv::tool
