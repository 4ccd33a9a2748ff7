// Sources without names, addresses and queries, for strangers.
#include "sources/redacted.h"

#include <algorithm>
#include <utility>

#include "common/presentable.h"

namespace kiv::tool {
namespace {

// A password is masked first, so that no part of it is taken for a name.
void redact(std::wstring& text, Redaction& redaction) { text = redaction(presentable(text)); }

void redact(Naming& naming, Redaction& redaction) {
  for (std::wstring* const text : {&naming.scriptUrl, &naming.manualList, &naming.bypassList}) redact(*text, redaction);
}

void redact(Place& place, Redaction& redaction) {
  redact(place.title, redaction);
  redact(place.remark, redaction);
  for (PlaceValue& value : place.values) redact(value.text, redaction);
  redact(place.naming, redaction);
}

void redact(ListInPlaces& list, Redaction& redaction) {
  redact(list.manualList, redaction);
  redact(list.bypassList, redaction);
  for (auto* const texts : {&list.reading.forHttp, &list.reading.forHttps, &list.reading.byKiv}) {
    for (std::wstring& text : *texts) redact(text, redaction);
  }
}

// The name of a VPN connection is the user's own text. Its place gets a number instead, everywhere.
void numberConnections(Sources& sources) {
  int count = 0;
  for (Place& place : sources.places) {
    if (!place.id.starts_with("vpn:")) continue;
    const std::string id = std::exchange(place.id, "vpn:" + std::to_string(++count));
    const std::wstring title =
        std::exchange(place.title, L"Settings of the VPN or dial-up connection " + std::to_wstring(count));
    for (ScriptAnswer& script : sources.scripts) std::ranges::replace(script.places, id, place.id);
    for (ListInPlaces& list : sources.lists) std::ranges::replace(list.places, id, place.id);
    for (SourceWarning& warning : sources.warnings) {
      if (std::ranges::find(warning.places, id) == warning.places.end()) continue;
      std::ranges::replace(warning.places, id, place.id);
      const std::size_t at = warning.problem.find(title);
      if (at != std::wstring::npos) warning.problem.replace(at, title.size(), place.title);
    }
  }
}

}  // namespace

Sources redacted(Sources sources, Redaction& redaction) {
  redact(sources.run, redaction);
  numberConnections(sources);
  for (Place& place : sources.places) redact(place, redaction);
  for (Place& call : sources.calls) redact(call, redaction);
  for (ScriptAnswer& script : sources.scripts) redact(script.url, redaction);
  for (ListInPlaces& list : sources.lists) redact(list, redaction);
  if (sources.clock) redact(sources.clock->proxy, redaction);
  for (auto* const warnings : {&sources.warnings, &sources.notes}) {
    for (SourceWarning& warning : *warnings) redact(warning.problem, redaction);
  }
  return sources;
}

}  // namespace kiv::tool
