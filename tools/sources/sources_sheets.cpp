// Sources as names and values, for the page of `sources` and for reports on resolutions.
#include "sources/sources_sheets.h"

#include "common/console.h"
#include "common/presentable.h"
#include "resolve/wording.h"
#include "sources/programs.h"
#include "sources/sources_text.h"
#include "sources/warnings.h"

namespace kiv::tool {
namespace {

Fact fact(std::wstring_view name, std::wstring_view value) { return {presentable(name), presentable(value)}; }

Sheet warningsSheet(const wchar_t* kind, const wchar_t* heading, const std::vector<SourceWarning>& warnings) {
  Sheet sheet{kind, heading};
  for (const SourceWarning& warning : warnings) {
    sheet.groups.push_back({toWide(warning.id),
                            {fact(L"Problem", warning.problem), fact(L"What to do", adviceFor(warning.id)),
                             fact(L"Places", idsText(warning.places))}});
  }
  return sheet;
}

Sheet callsSheet(const Sources& sources) {
  Sheet sheet{L"applies", L"What applies to this account", {{L"", {}}}};
  for (const Place& call : sources.calls)
    sheet.groups.front().facts.push_back(fact(call.title, summaryOf(call.naming)));
  if (sources.clock) sheet.groups.front().facts.push_back(fact(L"Clock of this computer", clockText(*sources.clock)));
  return sheet;
}

Sheet scriptsSheet(const std::vector<ScriptAnswer>& scripts) {
  Sheet sheet{L"scripts", L"PAC scripts, as their addresses answered"};
  for (const ScriptAnswer& script : scripts) {
    sheet.groups.push_back(
        {presentable(script.url), {fact(L"Answer", answerOf(script)), fact(L"Places", idsText(script.places))}});
  }
  return sheet;
}

Sheet listsSheet(const std::vector<ListInPlaces>& lists) {
  Sheet sheet{L"lists", L"Lists that Windows (by its documentation) and kiv.dll read differently"};
  for (const ListInPlaces& list : lists) {
    FactGroup group{idsText(list.places),
                    {fact(L"Manual proxy list", list.manualList), fact(L"Bypass list", list.bypassList),
                     fact(L"Windows, http URLs", joined(list.reading.forHttp)),
                     fact(L"Windows, https URLs", joined(list.reading.forHttps)),
                     fact(L"kiv.dll, all URLs", joined(list.reading.byKiv))}};
    for (const std::wstring& difference : list.reading.differences)
      group.facts.push_back(fact(L"Difference", difference));
    sheet.groups.push_back(std::move(group));
  }
  return sheet;
}

Sheet foundSheet(const std::vector<Place>& places) {
  Sheet sheet{L"places", L"Places with settings"};
  for (const Place& place : places) {
    if (place.state != PlaceState::Found) continue;
    FactGroup group{presentable(place.title), {fact(L"Place", toWide(place.id) + L", " + place.location)}};
    for (const PlaceValue& value : place.values) group.facts.push_back(fact(value.name, value.text));
    if (!place.remark.empty()) group.facts.push_back(fact(L"Remark", place.remark));
    sheet.groups.push_back(std::move(group));
  }
  if (sheet.groups.empty()) sheet.note = L"No place has settings.";
  return sheet;
}

Sheet othersSheet(const std::vector<Place>& places) {
  Sheet sheet{L"others", L"Other places", {{L"", {}}}};
  std::vector<Fact>& facts = sheet.groups.front().facts;
  for (const Place& place : places) {
    if (place.state == PlaceState::NotReadable)
      facts.push_back(fact(place.title, std::wstring(textOf(place.state)).append(L": ").append(place.remark)));
  }
  for (const PlaceState state : {PlaceState::NothingThere, PlaceState::NotOnThisSystem}) {
    const auto ids = idsOf(places, state);
    if (!ids.empty()) facts.push_back(fact(textOf(state), idsText(ids)));
  }
  return sheet;
}

}  // namespace

std::vector<Sheet> sourcesSheets(const Sources& sources) {
  Sheet warnings = warningsSheet(L"warnings", L"Warnings about settings", sources.warnings);
  if (warnings.groups.empty()) warnings.note = L"There are none.";
  return {warnings,
          warningsSheet(L"notes", L"Notes about settings", sources.notes),
          callsSheet(sources),
          scriptsSheet(sources.scripts),
          listsSheet(sources.lists),
          foundSheet(sources.places),
          othersSheet(sources.places)};
}

Sheet sourcesTargetSheet(const Resolution& resolution) {
  Sheet sheet{L"url",
              L"For the URL",
              {{L"",
                {fact(L"URL", resolution.url),
                 fact(L"Bypass list", resolution.bypass.matches ? L"matches" : L"does not match")}}}};
  std::wstring candidates;
  for (const Candidate& candidate : resolution.candidates)
    candidates += (candidates.empty() ? L"" : L", ") + candidate.text;
  sheet.groups.front().facts.push_back(fact(L"Candidates of kiv.dll", candidates));
  return sheet;
}

Sheet programsSheet() {
  Sheet sheet{L"programs", L"What programs read, by their documentation", {{L"", {}}}};
  for (const Program& program : knownPrograms()) {
    sheet.groups.front().facts.push_back(fact(program.name, std::wstring(program.reads)
                                                                .append(L" (")
                                                                .append(program.version)
                                                                .append(L"; ")
                                                                .append(program.source)
                                                                .append(L")")));
  }
  return sheet;
}

}  // namespace kiv::tool
