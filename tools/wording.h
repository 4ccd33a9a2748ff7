// The words for what was learned, which the table, the JSON document and the report share.
#pragma once

#include <string>
#include <string_view>

#include "resolution.h"

namespace kiv::tool {

// The names of programs' values: "works", "not-tested", "system", "info".
std::string_view idOf(Verdict verdict);
std::string_view idOf(Origin origin);
std::string_view idOf(OutcomeKind kind);
std::string_view idOf(Level level);

std::wstring_view originText(Origin origin);  // "from --prefer"
// What a candidate's last request says about it: "works", "cannot connect".
std::wstring verdictText(const Candidate& candidate);
// What one request was answered: "407", "failed (12029)".
std::wstring answerText(const Request& request);
std::wstring answersText(const Candidate& candidate);
std::wstring durationText(milliseconds duration);  // "35 ms"
std::wstring timeText(WallTime time);              // ISO 8601 with milliseconds, in UTC
// What settled the matter in front of all tests, or what of the settings could not be had; empty if there is nothing.
std::wstring remark(const Resolution& resolution);

}  // namespace kiv::tool
