// What the scripts answer for each URL, as a table for people and as a JSON document.
#include "pac/pac_result.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "common/console.h"
#include "resolve/failures.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;
using Line = std::vector<std::wstring>;

constexpr unsigned kTooLate = ERROR_WINHTTP_TIMEOUT;

struct VerdictWords {
  const char* id;
  const wchar_t* text;
};

// In the order of the enumerators.
constexpr std::array<VerdictWords, 3> kVerdicts = {{{"same", L"same"}, {"differs", L"differs"}, {"failed", L"failed"}}};

const VerdictWords& wordsFor(PacVerdict verdict) { return kVerdicts[static_cast<std::size_t>(verdict)]; }

std::wstring aligned(const std::vector<Line>& lines) {
  std::vector<std::size_t> widths(lines.front().size());
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::wstring text;
  for (const Line& line : lines) {
    for (std::size_t i = 0; i + 1 < line.size(); ++i)
      text += line[i] + std::wstring(widths[i] + 2 - line[i].size(), L' ');
    text += line.back() + L'\n';
  }
  return text;
}

Line lineOf(const PacRow& row) {
  if (!row.before) return {row.url, answerText(row.now), readingText(row.now)};
  return {wordsFor(row.verdict()).text, row.url, answerText(*row.before), answerText(row.now)};
}

// Whether the script is to blame for an error.
bool fails(const PacResult& result, bool before) {
  const auto isBad = [](const PacAnswer& answer) { return answer.error.value_or(kTooLate) != kTooLate; };
  return std::ranges::any_of(
      result.rows, [&](const PacRow& row) { return before ? row.before && isBad(*row.before) : isBad(row.now); });
}

bool isDirectSomewhere(const PacResult& result) {
  const auto isDirect = [](const PacAnswer& answer) { return !answer.error && answer.list.empty(); };
  return std::ranges::any_of(
      result.rows, [&](const PacRow& row) { return isDirect(row.now) || (row.before && isDirect(*row.before)); });
}

// What is known of a script that fails: WinHTTP returns neither line nor reason.
std::wstring failureRemark(const PacScript& script) {
  if (script.text.find("FindProxyForURL") == std::string::npos) {
    return script.name + L" has no function FindProxyForURL: it is no PAC script.\n";
  }
  return script.name +
         L" fails. Windows does not say where: a syntax error fails for every URL, an error in a function for the URLs "
         L"that reach it.\n";
}

std::wstring differencesRemark(const PacResult& result) {
  return L"URLs: " + std::to_wstring(result.rows.size()) + L", different: " +
         std::to_wstring(result.count(PacVerdict::Differs)) + L", failed: " +
         std::to_wstring(result.count(PacVerdict::Failed)) + L"\n";
}

Json scriptOf(const PacScript& script) { return {{"name", toUtf8(script.name)}, {"bytes", script.text.size()}}; }

Json answerOf(const PacAnswer& answer) {
  if (answer.error) {
    return {{"error", *answer.error},
            {"explanation", toUtf8(errorText(*answer.error))},
            {"milliseconds", answer.duration.count()}};
  }
  Json candidates = Json::array();
  for (const std::wstring& candidate : answer.candidates) candidates.push_back(toUtf8(candidate));
  return {{"list", answer.list.empty() ? Json(nullptr) : Json(toUtf8(answer.list))},
          {"candidates", candidates},
          {"milliseconds", answer.duration.count()}};
}

Json rowOf(const PacRow& row) {
  Json json = {{"url", toUtf8(row.url)}, {"verdict", wordsFor(row.verdict()).id}};
  if (row.before) json["old"] = answerOf(*row.before);
  json["new"] = answerOf(row.now);
  return json;
}

}  // namespace

PacVerdict PacRow::verdict() const {
  if (now.error || (before && before->error)) return PacVerdict::Failed;
  return before && now.differsFrom(*before) ? PacVerdict::Differs : PacVerdict::Same;
}

std::size_t PacResult::count(PacVerdict verdict) const {
  return static_cast<std::size_t>(std::ranges::count(rows, verdict, &PacRow::verdict));
}

std::wstring_view textOf(PacVerdict verdict) { return wordsFor(verdict).text; }

std::wstring answerText(const PacAnswer& answer) {
  if (answer.error) return L"failed: " + errorText(*answer.error);
  return answer.list.empty() ? L"DIRECT" : answer.list;
}

std::wstring readingText(const PacAnswer& answer) {
  if (answer.error) return L"-";
  std::wstring text;
  for (const std::wstring& candidate : answer.candidates) text += (text.empty() ? L"" : L", ") + candidate;
  return text.empty() ? L"DIRECT" : text;
}

void redact(PacResult& result, Redaction& redaction) {
  const auto redactAnswer = [&](PacAnswer& answer) {
    answer.list = redaction(answer.list);
    for (std::wstring& candidate : answer.candidates) candidate = redaction(candidate);
  };
  result.script.name = redaction(result.script.name);
  if (result.against) result.against->name = redaction(result.against->name);
  for (PacRow& row : result.rows) {
    row.url = redaction(row.url);
    redactAnswer(row.now);
    if (row.before) redactAnswer(*row.before);
  }
}

std::wstring pacTable(const PacResult& result, bool wanted) {
  std::vector<Line> lines;
  lines.push_back(result.against ? Line{L"", L"URL", L"OLD", L"NEW"} : Line{L"URL", L"Windows returns", L"kiv tests"});
  for (const PacRow& row : result.rows) {
    if (!result.against || wanted || row.verdict() != PacVerdict::Same) lines.push_back(lineOf(row));
  }
  return lines.size() == 1 ? std::wstring() : aligned(lines);
}

std::wstring pacRemarks(const PacResult& result) {
  std::wstring text;
  if (isDirectSomewhere(result)) {
    text += L"DIRECT: kiv then tests the user's manual proxy list; without one, the connection is direct.\n";
  }
  if (result.against && fails(result, true)) text += failureRemark(*result.against);
  if (fails(result, false)) text += failureRemark(result.script);
  if (result.against) text += differencesRemark(result);
  return text;
}

std::string pacDocument(const PacResult& result, bool redacted) {
  Json rows = Json::array();
  for (const PacRow& row : result.rows) rows.push_back(rowOf(row));
  Json json = {{"program", "kiv-resolve"}, {"version", KIV_VERSION}, {"task", "pac"}};
  if (redacted) json["redacted"] = true;
  if (result.against) json["old"] = scriptOf(*result.against);
  json["new"] = scriptOf(result.script);
  json["results"] = rows;
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kiv::tool
