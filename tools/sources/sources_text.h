// Sources for people: text for a console.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sources/sources.h"

namespace kiv::tool {

std::wstring sourcesText(const Sources& sources);

// The words that the text and the page share.
std::wstring_view textOf(PlaceState state);         // "nothing there"
std::wstring summaryOf(const Naming& naming);       // "automatic detection, gate:8080"
std::wstring answerOf(const ScriptAnswer& script);  // "200, text/html, HTML"
std::vector<std::string> idsOf(const std::vector<Place>& places, PlaceState state);
std::wstring clockText(const ProxyClock& clock);
std::wstring idsText(const std::vector<std::string>& ids);    // "user-values, user-policy"
std::wstring joined(const std::vector<std::wstring>& texts);  // "a:1, b:1"; "no proxy" if there is none

}  // namespace kiv::tool
