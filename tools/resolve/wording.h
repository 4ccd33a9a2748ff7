// The words for results, which the table, the JSON document and the report share.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "resolve/resolution.h"

namespace kiv::tool {

// The names of programs' values: "works", "not-tested", "system", "info".
std::string_view idOf(Verdict verdict);
std::string_view idOf(Origin origin);
std::string_view idOf(OutcomeKind kind);
std::string_view idOf(LogLevel level);

// Of an outcome of that kind.
constexpr const wchar_t* kNotCompleted =
    L"The resolution did not complete: memory ran out, or a port in the URL or in the bypass list is too large.";

std::wstring_view originText(Origin origin);  // "from --prefer"
// The verdict after a candidate's last request: "works", "cannot connect".
std::wstring verdictText(const Candidate& candidate);
// The verdict, with the error if there is one: "cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029)".
std::wstring explanationText(const Candidate& candidate);
// The response to one request: "407", "failed".
std::wstring responseText(const Request& request);
// The response to one request, with the error if there is one: "failed: ERROR_WINHTTP_CANNOT_CONNECT (12029)".
std::wstring responseWithErrorText(const Request& request);
std::wstring responsesText(const Candidate& candidate);
std::wstring durationText(milliseconds duration);              // "35 ms"
std::wstring timeText(WallTime time);                          // ISO 8601 with milliseconds, in UTC
std::wstring_view outcomeText(OutcomeKind kind);               // "Route found"
std::wstring counted(std::size_t count, const wchar_t* noun);  // "2 candidates"
std::size_t testedCount(const Resolution& resolution);
// The reason for the outcome, in a sentence or two.
std::wstring reasonText(const Resolution& resolution);
// Why no test was needed, or what failed before the tests; empty if there is nothing to say.
std::wstring remark(const Resolution& resolution);

}  // namespace kiv::tool
