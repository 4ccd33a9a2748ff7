// Sources for people: text for a console.
#include "sources/sources_text.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "common/console.h"
#include "common/presentable.h"
#include "resolve/failures.h"
#include "resolve/table.h"
#include "resolve/wording.h"
#include "sources/calls.h"
#include "sources/places.h"
#include "sources/programs.h"
#include "sources/registry.h"
#include "sources/warnings.h"

namespace kiv::tool {
namespace {

constexpr std::array<std::wstring_view, 4> kStates = {L"found", L"nothing there", L"not readable",
                                                      L"not on this system"};
constexpr std::size_t kColumn = 30;
constexpr std::size_t kWidth = 100;

// "  name      text", with the texts below each other.
std::wstring row(std::wstring_view indent, std::wstring_view name, std::wstring_view text) {
  std::wstring line = std::wstring(indent).append(name);
  line.append(std::max(kColumn, line.size() + 2) - line.size(), L' ');
  return line + presentable(text) + L"\n";
}

std::wstring orUnknown(const std::wstring& text) { return text.empty() ? L"unknown" : text; }

std::wstring runText(const Sources& sources) {
  const ThisRun& run = sources.run;
  std::wstring text = L"This run\n";
  text += row(L"  ", L"account", orUnknown(run.account));
  text += row(L"  ", L"elevated", run.elevated ? (*run.elevated ? L"yes" : L"no") : L"unknown");
  text += row(L"  ", L"session", run.session ? std::to_wstring(*run.session) : L"unknown");
  text += row(L"  ", L"computer", orUnknown(run.computer));
  text += row(L"  ", L"Windows", orUnknown(run.windows));
  text += row(L"  ", L"time", timeText(sources.time));
  if (sources.clock) text += row(L"  ", L"clock", clockText(*sources.clock));
  return text;
}

std::wstring placeText(const Place& place) {
  std::wstring text = L"  " + presentable(place.title) + L" [" + toWide(place.id) + L"]\n";
  text += L"    " + presentable(place.location) + L"\n";
  for (const PlaceValue& value : place.values) text += row(L"    ", presentable(value.name), value.text);
  if (!place.remark.empty()) text += row(L"    ", L"remark", place.remark);
  return text;
}

// "a, b, c" in lines that fit, below each other.
std::wstring wrapped(std::wstring_view name, const std::vector<std::string>& ids) {
  std::wstring text;
  std::wstring line;
  for (const std::string& id : ids) {
    if (kColumn + line.size() + id.size() + 2 > kWidth) {
      text += row(L"  ", text.empty() ? name : L"", line);
      line.clear();
    }
    line += toWide(id) + (&id == &ids.back() ? L"" : L", ");
  }
  return text + row(L"  ", text.empty() ? name : L"", line);
}

std::wstring placesText(const std::vector<Place>& places) {
  std::wstring found;
  std::wstring unread;
  for (const Place& place : places) {
    if (place.state == PlaceState::Found) found += placeText(place);
    if (place.state == PlaceState::NotReadable)
      unread += row(L"  ", toWide(place.id), std::wstring(textOf(place.state)).append(L": ").append(place.remark));
  }
  std::wstring text = L"Places with settings\n" + (found.empty() ? L"  none\n" : found) + L"Other places\n" + unread;
  for (const PlaceState state : {PlaceState::NothingThere, PlaceState::NotOnThisSystem}) {
    const auto ids = idsOf(places, state);
    if (!ids.empty()) text += wrapped(textOf(state), ids);
  }
  return text;
}

std::wstring namingText(const Naming& naming) {
  std::wstring text;
  if (naming.automaticDetection) text += row(L"    ", L"automatic detection", L"on");
  if (!naming.scriptUrl.empty()) text += row(L"    ", L"PAC script", naming.scriptUrl);
  if (!naming.manualList.empty()) text += row(L"    ", L"manual proxy list", naming.manualList);
  if (!naming.bypassList.empty()) text += row(L"    ", L"bypass list", naming.bypassList);
  return naming.namesProxy() ? text : L"    no proxy\n" + text;
}

// The places that hold just what a call returned: where to change it.
std::vector<std::string> placesLike(const Place& call, const std::vector<Place>& places) {
  std::vector<std::string> ids;
  for (const Place& place : places) {
    if (place.naming.namesProxy() && place.naming == call.naming && !isOfBrowser(place)) ids.push_back(place.id);
  }
  return ids;
}

std::wstring callsText(const Sources& sources) {
  std::wstring text = L"What applies to this account\n";
  for (const Place& call : sources.calls) {
    text += std::wstring(L"  ") + (call.id == kUserCall ? L"kiv.dll, " : L"WinHTTP's default proxy, ") + call.location +
            L"\n";
    text +=
        call.state == PlaceState::NotReadable ? L"    not readable: " + call.remark + L"\n" : namingText(call.naming);
    if (call.state == PlaceState::NothingThere && !call.remark.empty()) text += L"    " + call.remark + L"\n";
    const auto places = placesLike(call, sources.places);
    if (!places.empty()) text += row(L"    ", L"from", idsText(places));
  }
  return text;
}

// By Windows' documented meaning of the machine-wide list.
std::wstring defaultProxyText(const Sources& sources) {
  const Place* const call = placeWith(sources.calls, kMachineCall);
  if (!call || call->state != PlaceState::Found) return {};
  const ListReading reading = readingOf(call->naming.manualList, call->naming.bypassList);
  const bool tls = sameName(std::wstring_view(sources.resolution->url).substr(0, 6), L"https:");
  std::wstring text = joined(tls ? reading.forHttps : reading.forHttp);
  if (!call->naming.bypassList.empty()) text += L", except for " + call->naming.bypassList;
  return L"  WinHTTP's default proxy     " + presentable(text) + L"\n";
}

std::wstring listsText(const std::vector<ListInPlaces>& lists) {
  std::wstring text;
  for (const ListInPlaces& list : lists) {
    text += L"Windows (by its documentation) and kiv.dll differ: " + idsText(list.places) + L"\n";
    text += row(L"  ", L"manual proxy list", list.manualList);
    if (!list.bypassList.empty()) text += row(L"  ", L"bypass list", list.bypassList);
    text += row(L"  ", L"Windows, http URLs", joined(list.reading.forHttp));
    text += row(L"  ", L"Windows, https URLs", joined(list.reading.forHttps));
    text += row(L"  ", L"kiv.dll, all URLs", joined(list.reading.byKiv));
    for (const std::wstring& difference : list.reading.differences) text += L"  - " + difference + L"\n";
  }
  return text;
}

std::wstring scriptsText(const std::vector<ScriptAnswer>& scripts) {
  std::wstring text = scripts.empty() ? L"" : L"PAC scripts, as their addresses answer now\n";
  for (const ScriptAnswer& script : scripts) {
    text += L"  " + presentable(script.url) + L" (" + idsText(script.places) + L")\n";
    text += L"    " + presentable(answerOf(script)) + L"\n";
  }
  return text;
}

std::wstring programsText() {
  std::wstring text = L"What programs read, by their documentation\n";
  for (const Program& program : knownPrograms()) {
    text += row(L"  ", program.name, program.reads);
    text += row(L"  ", L"", std::wstring(program.version).append(L" (").append(program.source).append(L")"));
  }
  return text;
}

std::wstring warningsText(const wchar_t* heading, const std::vector<SourceWarning>& warnings) {
  std::wstring text;
  for (const SourceWarning& warning : warnings) {
    text += L"  " + toWide(warning.id) + L": " + presentable(warning.problem) + L"\n";
    text += std::wstring(L"    ").append(adviceFor(warning.id)) + L"\n";
  }
  return text.empty() ? text : heading + text;
}

}  // namespace

std::wstring_view textOf(PlaceState state) { return kStates[static_cast<std::size_t>(state)]; }

std::wstring joined(const std::vector<std::wstring>& texts) {
  std::wstring all;
  for (const std::wstring& text : texts) all += (all.empty() ? L"" : L", ") + text;
  return all.empty() ? L"no proxy" : all;
}

std::vector<std::string> idsOf(const std::vector<Place>& places, PlaceState state) {
  std::vector<std::string> ids;
  for (const Place& place : places) {
    if (place.state == state) ids.push_back(place.id);
  }
  return ids;
}

std::wstring idsText(const std::vector<std::string>& ids) {
  std::wstring all;
  for (const std::string& id : ids) all += (all.empty() ? L"" : L", ") + toWide(id);
  return all;
}

std::wstring clockText(const ProxyClock& clock) {
  if (!clock.secondsAhead) return L"unknown: " + clock.proxy + L" did not tell the time";
  const std::int64_t ahead = *clock.secondsAhead;
  // A Date header has whole seconds, and is older when it arrives.
  if (std::abs(ahead) <= 2) return L"as on " + clock.proxy;
  return std::to_wstring(std::abs(ahead)) + (ahead > 0 ? L" s ahead of " : L" s behind ") + clock.proxy;
}

std::wstring answerOf(const ScriptAnswer& script) {
  const FetchedScript& fetched = script.fetched;
  if (fetched.status < 0) return L"failed: " + errorText(fetched.error);
  const std::wstring type = fetched.contentType.empty() ? L"no type" : fetched.contentType;
  return std::to_wstring(fetched.status) + L", " + type + (script.isHtml() ? L", HTML" : L"");
}

std::wstring summaryOf(const Naming& naming) {
  std::wstring text;
  const auto add = [&](const std::wstring& part) { text += (text.empty() ? L"" : L", ") + part; };
  if (naming.automaticDetection) add(L"automatic detection");
  if (!naming.scriptUrl.empty()) add(L"script " + naming.scriptUrl);
  if (!naming.manualList.empty()) add(naming.manualList);
  return text.empty() ? L"no proxy" : text;
}

std::wstring sourcesText(const Sources& sources) {
  std::wstring text = runText(sources) + placesText(sources.places) + scriptsText(sources.scripts) +
                      callsText(sources) + listsText(sources.lists);
  if (sources.resolution) text += targetText(*sources.resolution) + defaultProxyText(sources);
  text += programsText() + warningsText(L"Notes\n", sources.notes);
  return text + (sources.warnings.empty() ? L"No warnings\n" : warningsText(L"Warnings\n", sources.warnings));
}

}  // namespace kiv::tool
