// What a watch tells: each resolution beside the one before.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "resolve/resolution.h"

namespace kiv::tool {

// Why a URL is resolved again. Settings: the user's settings differ from those of the resolution before. Network:
// something else changed, as a rule this computer's addresses.
enum class ChangeKind : std::uint8_t { Start, Settings, Network, Time };

struct Observation {
  WallTime time;  // when the resolution ended
  ChangeKind change = ChangeKind::Start;
  std::wstring url{};
  Outcome outcome{};
  std::wstring explanation{};                // why there is no route; empty if there is one
  std::vector<std::wstring> differences{};   // what is not as it was before
  WallTime since{};                          // since when the outcome is this one
  std::optional<std::wstring> formerText{};  // the outcome before; nothing if there was none, or it was the same
  milliseconds formerDuration{};             // how long it lasted
};

class Watch {
 public:
  // `notified`: the resolution followed a notification.
  Observation observe(const Resolution& now, bool notified);

 private:
  std::optional<Resolution> before_;
  WallTime since_;
};

// What differs in settings, outcome and candidates, a text for each: "manual proxy list: a:1 -> b:1".
std::vector<std::wstring> differencesBetween(const Resolution& before, const Resolution& now);

// "35 s", "11 min 10 s", "3 h 5 min", "2 d 4 h".
std::wstring spanText(milliseconds span);

std::wstring observationLine(const Observation& observation);
// The object that docs/kiv-resolve.schema.json describes as watchRecord, on a line.
std::string observationJson(const Observation& observation);

}  // namespace kiv::tool
