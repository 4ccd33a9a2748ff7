// Sources for programs: a JSON document, which docs/kiv-resolve.schema.json describes.
#include "sources/sources_json.h"

#include <array>
#include <nlohmann/json.hpp>

#include "common/console.h"
#include "common/presentable.h"
#include "resolve/wording.h"
#include "sources/programs.h"
#include "sources/warnings.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 4> kStateIds = {"found", "nothing-there", "not-readable", "not-on-this-system"};

Json shown(std::wstring_view text) { return toUtf8(presentable(text)); }

// An empty text as null.
Json shownOrNull(std::wstring_view text) { return text.empty() ? Json(nullptr) : shown(text); }

template <class Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

template <class Items, class Convert>
Json arrayOf(const Items& items, Convert convert) {
  Json array = Json::array();
  for (const auto& item : items) array.push_back(convert(item));
  return array;
}

Json runOf(const ThisRun& run) {
  return {{"computer", shownOrNull(run.computer)}, {"account", shownOrNull(run.account)},
          {"sid", shownOrNull(run.sid)},           {"elevated", orNull(run.elevated)},
          {"session", orNull(run.session)},        {"windows", shownOrNull(run.windows)}};
}

Json namingOf(const Naming& naming) {
  return {{"automaticDetection", naming.automaticDetection},
          {"scriptUrl", shownOrNull(naming.scriptUrl)},
          {"manualList", shownOrNull(naming.manualList)},
          {"bypassList", shownOrNull(naming.bypassList)}};
}

Json placeOf(const Place& place) {
  const auto valueOf = [](const PlaceValue& value) {
    return Json{{"name", shown(value.name)}, {"text", shown(value.text)}};
  };
  return {{"id", place.id},
          {"title", shown(place.title)},
          {"location", shown(place.location)},
          {"state", idOf(place.state)},
          {"remark", shownOrNull(place.remark)},
          {"values", arrayOf(place.values, valueOf)},
          {"names", namingOf(place.naming)}};
}

Json scriptOf(const ScriptAnswer& script) {
  const FetchedScript& fetched = script.fetched;
  Json json = {{"url", shown(script.url)},
               {"places", script.places},
               {"status", fetched.status < 0 ? Json(nullptr) : Json(fetched.status)},
               {"type", shownOrNull(fetched.contentType)},
               {"isHtml", script.isHtml()}};
  if (fetched.status < 0) json["error"] = fetched.error;
  return json;
}

Json listOf(const ListInPlaces& list) {
  const auto texts = [](const std::vector<std::wstring>& lines) { return arrayOf(lines, shown); };
  return {{"manualList", shown(list.manualList)},
          {"bypassList", shownOrNull(list.bypassList)},
          {"places", list.places},
          {"windowsForHttp", texts(list.reading.forHttp)},
          {"windowsForHttps", texts(list.reading.forHttps)},
          {"kiv", texts(list.reading.byKiv)},
          {"differences", texts(list.reading.differences)}};
}

Json targetOf(const Resolution& resolution) {
  const auto textOf = [](const Candidate& candidate) { return shown(candidate.text); };
  return {{"url", shown(resolution.url)},
          {"discoverySucceeded", !resolution.discoveryFailed},
          {"bypassed", resolution.bypass.matches},
          {"candidates", arrayOf(resolution.candidates, textOf)}};
}

Json clockOf(const ProxyClock& clock) {
  return {{"proxy", shown(clock.proxy)}, {"secondsAhead", orNull(clock.secondsAhead)}};
}

Json programOf(const Program& program) {
  return {{"name", shown(program.name)},
          {"version", shown(program.version)},
          {"reads", shown(program.reads)},
          {"source", shown(program.source)}};
}

Json warningOf(const SourceWarning& warning) {
  return {{"id", warning.id},
          {"problem", shown(warning.problem)},
          {"advice", shown(adviceFor(warning.id))},
          {"places", warning.places}};
}

}  // namespace

std::string_view idOf(PlaceState state) { return kStateIds[static_cast<std::size_t>(state)]; }

std::string sourcesDocument(const Sources& sources, bool redacted) {
  Json json = {{"program", "kiv-resolve"},
               {"version", KIV_VERSION},
               {"task", "sources"},
               {"time", shown(timeText(sources.time))},
               {"machine", runOf(sources.run)},
               {"clock", sources.clock ? clockOf(*sources.clock) : Json(nullptr)},
               {"places", arrayOf(sources.places, placeOf)},
               {"scripts", arrayOf(sources.scripts, scriptOf)},
               {"applies", arrayOf(sources.calls, placeOf)},
               {"lists", arrayOf(sources.lists, listOf)},
               {"target", sources.resolution ? targetOf(*sources.resolution) : Json(nullptr)},
               {"programs", arrayOf(knownPrograms(), programOf)},
               {"notes", arrayOf(sources.notes, warningOf)},
               {"warnings", arrayOf(sources.warnings, warningOf)}};
  if (redacted) json["redacted"] = true;
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kiv::tool
