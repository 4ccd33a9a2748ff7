// Resolutions for programs: a JSON document, which docs/kiv-resolve.schema.json describes, and trace lines.
#include "resolve/json_document.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "common/console.h"
#include "resolve/probe_json.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 3> kTaskIds = {"resolve", "settings", "candidates"};

// An empty text as null.
Json textOrNull(std::wstring_view text) { return text.empty() ? Json(nullptr) : Json(toUtf8(text)); }

Json settingsOf(const UserSettings& settings) {
  return {{"found", settings.found},
          {"automaticDetection", settings.automaticDetection},
          {"scriptUrl", textOrNull(settings.scriptUrl)},
          {"manualList", textOrNull(settings.manualList)},
          {"bypassList", textOrNull(settings.bypassList)}};
}

Json bypassOf(const Bypass& bypass) {
  return {{"list", textOrNull(bypass.list)},
          {"source", bypass.given ? "option" : "settings"},
          {"namesTarget", bypass.matches}};
}

Json requestOf(const Request& request) {
  Json json = {{"status", request.status < 0 ? Json(nullptr) : Json(request.status)},
               {"milliseconds", request.duration.count()}};
  if (request.error) json["error"] = *request.error;
  if (!request.failure.empty()) json["failure"] = toUtf8(request.failure);
  return json;
}

Json candidateOf(std::size_t number, const Candidate& candidate) {
  Json requests = Json::array();
  for (const Request& request : candidate.requests) requests.push_back(requestOf(request));
  return {{"number", number},
          {"candidate", toUtf8(candidate.text)},
          {"origin", idOf(candidate.origin)},
          {"verdict", idOf(candidate.verdict())},
          {"explanation", toUtf8(explanationText(candidate))},
          {"milliseconds", candidate.duration().count()},
          {"requests", requests}};
}

Json outcomeOf(const Resolution& resolution) {
  Json json = {{"kind", idOf(resolution.outcome.kind)}, {"text", textOrNull(resolution.outcome.text)}};
  if (const auto winner = resolution.winner()) json["candidate"] = *winner;
  return json;
}

Json resultOf(const Resolution& resolution) {
  Json candidates = Json::array();
  for (const Candidate& candidate : resolution.candidates) {
    candidates.push_back(candidateOf(candidates.size(), candidate));
  }
  Json result = {{"url", toUtf8(resolution.url)},
                 {"outcome", outcomeOf(resolution)},
                 {"began", toUtf8(timeText(resolution.began))},
                 {"milliseconds", resolution.duration.count()},
                 {"settings", settingsOf(resolution.settings)},
                 {"discovery",
                  {{"succeeded", !resolution.discoveryFailed}, {"milliseconds", resolution.discoveryDuration.count()}}},
                 {"bypass", bypassOf(resolution.bypass)},
                 {"candidates", candidates}};
  if (resolution.probe) result["probe"] = probeJson(*resolution.probe);
  return result;
}

std::string dumped(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

Json documentOf(std::string_view task, bool redacted, const std::vector<Resolution>& resolutions) {
  Json results = Json::array();
  for (const Resolution& resolution : resolutions) results.push_back(resultOf(resolution));
  Json document = {{"program", "kiv-resolve"}, {"version", KIV_VERSION}, {"task", task}};
  if (redacted) document["redacted"] = true;
  document["results"] = std::move(results);
  return document;
}

std::string textOf(const Json& document) { return dumped(document, 2); }

std::string jsonDocument(Task task, bool redacted, const std::vector<Resolution>& resolutions) {
  return textOf(documentOf(kTaskIds[static_cast<std::size_t>(task)], redacted, resolutions));
}

std::string traceLine(const Resolution& resolution, const Record& record) {
  return dumped({{"time", toUtf8(timeText(record.time))},
                 {"level", idOf(record.level)},
                 {"url", toUtf8(resolution.url)},
                 {"message", toUtf8(record.message)}},
                -1);
}

}  // namespace kiv::tool
