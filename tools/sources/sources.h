// Everything that the command `sources` finds out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/this_run.h"
#include "common/time_limits.h"
#include "resolve/resolution.h"
#include "sources/list_reading.h"
#include "sources/network.h"
#include "sources/place.h"

namespace kiv::tool {

// What the address of a PAC script answered.
struct ScriptAnswer {
  std::wstring url{};
  std::vector<std::string> places{};  // their ids
  FetchedScript fetched{};

  bool isHtml() const;
};

// A manual list that Windows and kiv.dll read differently.
struct ListInPlaces {
  std::wstring manualList{};
  std::wstring bypassList{};
  std::vector<std::string> places{};
  ListReading reading{};
};

// This machine's clock against that of a proxy.
struct ProxyClock {
  std::wstring proxy{};
  std::optional<std::int64_t> secondsAhead{};  // of this machine; nothing if the proxy did not tell the time
};

struct SourceWarning {
  std::string id{};
  std::wstring problem{};
  std::vector<std::string> places{};
};

struct Sources {
  WallTime time{};
  ThisRun run{};
  std::vector<Place> places{};
  std::vector<Place> calls{};
  std::vector<ScriptAnswer> scripts{};
  std::vector<ListInPlaces> lists{};
  std::optional<Resolution> resolution{};  // for the URL, if there is one; added by the command
  std::optional<ProxyClock> clock{};
  std::vector<SourceWarning> warnings{};
  std::vector<SourceWarning> notes{};  // what is normal, and good to know
};

// The clock of one of the candidates is compared. Does not resolve a URL.
Sources readSources(const std::vector<Candidate>& candidates, TimeLimits limits);

// From what is known of the places and calls.
std::vector<ListInPlaces> listsReadDifferently(const Sources& sources);
// The http and https addresses of PAC scripts, each once; what they answer is not known yet.
std::vector<ScriptAnswer> scriptsNamedIn(const Sources& sources);

}  // namespace kiv::tool
